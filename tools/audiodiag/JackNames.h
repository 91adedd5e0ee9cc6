// The names of a jack description's values, as the Windows SDK names its EPcx* enums
// without their prefixes and as the machine descriptions write them ("AtapiInternal",
// "ATAPI"). Null for a value outside the table.
#pragma once

namespace audiodiag {

const char* connectionTypeName(unsigned int value);
const char* geoLocationName(unsigned int value);
const char* genLocationName(unsigned int value);
const char* portConnectionName(unsigned int value);

} // namespace audiodiag
