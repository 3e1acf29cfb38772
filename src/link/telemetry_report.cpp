#include "link/telemetry_report.h"
