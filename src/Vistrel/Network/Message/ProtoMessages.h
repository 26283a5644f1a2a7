#pragma once

// The generated report messages, exported from the kit so the local service decodes with the
// very same classes.
#include <Vistrel/vistrel_export.h>

#include "Network/Message/vistrel.pb.h"

namespace VistrelKit {
using ProtoMessage = com::orvane::vistrel::ProtoMessage;
using ProtoMessageList = com::orvane::vistrel::ProtoMessageList;
using ProtoClickEvent = com::orvane::vistrel::ProtoClickEvent;
using ProtoScreenshotEvent = com::orvane::vistrel::ProtoScreenshotEvent;
using ProtoUserTag = com::orvane::vistrel::UserTag;
} // namespace VistrelKit
