#pragma once

#include <QLoggingCategory>

// Everything the service rejects is logged here ("vistrel.service"), one line per event.
Q_DECLARE_LOGGING_CATEGORY(lcVistrelService)
