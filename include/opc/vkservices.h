// The whole public interface of opcvkservices, and of the contract libraries that a tool
// needs beside it, in one include.
#ifndef OPC_VKSERVICES_H_
#define OPC_VKSERVICES_H_

#include <opc/core/exception.h>
#include <opc/core/file_system_ops.h>
#include <opc/core/file_system_ops_selector.h>
#include <opc/core/input_stream.h>
#include <opc/core/local_file_system_ops.h>
#include <opc/core/output_stream.h>
#include <opc/core/package_paths.h>
#include <opc/core/perms.h>
#include <opc/core/stream_adaptors.h>
#include <opc/core/stream_helper.h>
#include <opc/core/string_conversions.h>
#include <opc/core/time_conversions.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/schema_base.h>
#include <opc/vkservices/version.h>

#endif  // OPC_VKSERVICES_H_
