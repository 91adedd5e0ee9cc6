#include "JackNames.h"

#include <iterator>

namespace audiodiag {

namespace {

template <std::size_t N>
const char* lookup(const char* const (&names)[N], unsigned int value, unsigned int first = 0) {
    return value >= first && value - first < N ? names[value - first] : nullptr;
}

} // namespace

const char* connectionTypeName(unsigned int value) {
    static const char* const names[] = {"Unknown",         "3Point5mm",   "Quarter",
                                        "AtapiInternal",   "RCA",         "Optical",
                                        "OtherDigital",    "OtherAnalog", "MultichannelAnalogDIN",
                                        "XlrProfessional", "RJ11Modem",   "Combination"};
    return lookup(names, value);
}

const char* geoLocationName(unsigned int value) {
    // eGeoLocRear is 1: there is no location 0.
    static const char* const names[] = {"Rear",      "Front",         "Left",
                                        "Right",     "Top",           "Bottom",
                                        "RearPanel", "Riser",         "InsideMobileLid",
                                        "Drivebay",  "HDMI",          "OutsideMobileLid",
                                        "ATAPI",     "NotApplicable", "Reserved6"};
    return lookup(names, value, 1);
}

const char* genLocationName(unsigned int value) {
    static const char* const names[] = {"PrimaryBox", "Internal", "Separate", "Other"};
    return lookup(names, value);
}

const char* portConnectionName(unsigned int value) {
    static const char* const names[] = {"Jack", "IntegratedDevice", "BothIntegratedAndJack",
                                        "Unknown"};
    return lookup(names, value);
}

} // namespace audiodiag
