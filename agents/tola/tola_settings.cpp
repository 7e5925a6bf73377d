#include "tola_settings.h"

TOLASettingsObject::TOLASettingsObject() = default;
TOLASettingsObject::~TOLASettingsObject() = default;
