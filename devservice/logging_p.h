#pragma once

#include <QLoggingCategory>

// The development service's logging categories.
Q_DECLARE_LOGGING_CATEGORY(lcDevService) // "vantro.devservice", from info
Q_DECLARE_LOGGING_CATEGORY(
    lcDevServiceRequest) // "vantro.devservice.request", from info: one line per request
