// Export macro of libopcvkservices.
//
// The library is built with hidden visibility; only declarations marked OPCVK_EXPORT are
// part of its ABI.  Classes are exported whole, exception classes included, so that their
// type information is unique across shared-library boundaries and `catch` works in callers.
#ifndef OPC_VKSERVICES_EXPORT_H_
#define OPC_VKSERVICES_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define OPCVK_EXPORT __attribute__((visibility("default")))
#else
#define OPCVK_EXPORT
#endif

#endif  // OPC_VKSERVICES_EXPORT_H_
