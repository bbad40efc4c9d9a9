#include "appsettings.h"

AppSettings::AppSettings() = default;
AppSettings::~AppSettings() = default;
