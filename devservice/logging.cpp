#include "logging_p.h"

Q_LOGGING_CATEGORY(lcDevService, "vantro.devservice", QtInfoMsg)
Q_LOGGING_CATEGORY(lcDevServiceRequest, "vantro.devservice.request", QtInfoMsg)
