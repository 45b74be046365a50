// Export macro of the package model library (libopcmodel).
//
// The library is built with hidden visibility: only declarations marked OPC_MODEL_EXPORT are
// part of its ABI.  Exception classes are always exported whole, so that their type
// information is unique across shared-library boundaries and `catch` works in callers.
#ifndef OPC_MODEL_EXPORT_H_
#define OPC_MODEL_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define OPC_MODEL_EXPORT __attribute__((visibility("default")))
#else
#define OPC_MODEL_EXPORT
#endif

#endif  // OPC_MODEL_EXPORT_H_
