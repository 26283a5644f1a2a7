#pragma once

namespace VistrelKit {

/// The result of calls whose reply body is ignored.
struct VoidReply
{
};

} // namespace VistrelKit
