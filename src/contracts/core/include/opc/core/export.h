// Export macro of the core services library (libopccore).
//
// The library is built with hidden visibility: only declarations marked OPC_CORE_EXPORT are
// part of its ABI.  Exception classes are always exported whole, so that their type
// information is unique across shared-library boundaries and `catch` works in callers.
#ifndef OPC_CORE_EXPORT_H_
#define OPC_CORE_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define OPC_CORE_EXPORT __attribute__((visibility("default")))
#else
#define OPC_CORE_EXPORT
#endif

#endif  // OPC_CORE_EXPORT_H_
