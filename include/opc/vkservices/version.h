// The library's version and build date, as exported data.
#ifndef OPC_VKSERVICES_VERSION_H_
#define OPC_VKSERVICES_VERSION_H_

#include <opc/vkservices/export.h>

// The library's version: four decimal numbers joined by ".", for example "1.0.0.0".
// Static text, valid for the life of the process.
extern "C" OPCVK_EXPORT char const* const opcvkservices_version;

// The date the library was built: the English month in three letters, the day as two
// digits and the year as four digits, blank-separated, for example "Nov 03 2026".
// Static text, valid for the life of the process.
extern "C" OPCVK_EXPORT char const* const opcvkservices_build_date;

#endif  // OPC_VKSERVICES_VERSION_H_
