// The whole public interface of opcvkservices, and of the contract libraries that a tool
// needs beside it, in one include.
#ifndef OPC_VKSERVICES_H_
#define OPC_VKSERVICES_H_

// Core services: exceptions, values, conversions, file systems and byte streams.
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

// The package model: packages, parts, names, content types, relationships, core properties.
#include <opc/model/content_type.h>
#include <opc/model/core_properties.h>
#include <opc/model/data_manager.h>
#include <opc/model/enumerator.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/package_helper.h>
#include <opc/model/package_options.h>
#include <opc/model/part.h>
#include <opc/model/part_name.h>
#include <opc/model/relationship.h>
#include <opc/model/relationship_selector.h>
#include <opc/model/relationship_source.h>
#include <opc/model/standard_part_info.h>
#include <opc/model/uri.h>
#include <opc/model/xml/xml_exceptions.h>

// The release of the product that a package is written for.
#include <foundation/release_info/invalid_release_info.h>
#include <foundation/release_info/release_info.h>

// Internationalisation: charset detection and conversion, and I18nError, which text
// recoding raises.
#include <fl/i18n/charset.h>

// The services of this library.
#include <opc/vkservices/aes_decryption_transform.h>
#include <opc/vkservices/aes_encryption_transform.h>
#include <opc/vkservices/bytes.h>
#include <opc/vkservices/cipher_data_manager.h>
#include <opc/vkservices/cipher_entry.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/content_types.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/core_properties_manager.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>
#include <opc/vkservices/i_decryptor.h>
#include <opc/vkservices/i_digest_engine.h>
#include <opc/vkservices/i_encryptor.h>
#include <opc/vkservices/iv_mode.h>
#include <opc/vkservices/schema_base.h>
#include <opc/vkservices/shared_extraction.h>
#include <opc/vkservices/transform_source.h>
#include <opc/vkservices/ude_to_utf8_transform.h>
#include <opc/vkservices/version.h>

#endif  // OPC_VKSERVICES_H_
