/// The named time zones, west to east.
#pragma once

namespace insolate {

struct NamedTimeZone {
    char name[52];
    float offset; ///< [hours from Greenwich]
};

/// 31 zones and a record with an empty name that ends the list. The names are stored in users'
/// files, so their spelling stays as it is.
extern const NamedTimeZone timeZoneList[32];

} // namespace insolate
