// The reader of the plain manifest form that goes without the validating parser, held to the
// parser's road: whenever read() takes a document without the parser, the parser alone must
// come to the same end with it: the same exception class and text or none, and the same tree
// (version, platform, encoding, and every leaf's kind, path, content, permissions and date).
// Documents that read() hands to the parser are its business, and filesystem_manifest's.
//
// Input: the bytes of a manifest document.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <typeinfo>
#include <vector>

#include <opc/core/stream_adaptors.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_tree.h"
#include "fuzz_support.h"
#include "manifest_shape.h"

namespace {

using opc::vkservices::FileSystemManifestXml;
using opc::vkservices::FileSystemTree;

FileSystemManifestXml& manifest() {
  static FileSystemManifestXml instance;
  return instance;
}

// How a read ended, and the shape of the tree it left.
template <typename Read>
std::string outcomeOf(std::vector<unsigned char> const& bytes, Read&& read) {
  FileSystemTree tree;
  std::string outcome;
  try {
    opc::ByteArrayInAdaptor source(bytes);
    read(source, tree);
    outcome = "read\n";
  } catch (std::exception const& e) {
    outcome = std::string(typeid(e).name()) + ": " + e.what() + "\n";
  }
  return outcome + opcvk_fuzz::manifestShapeOf(tree);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<unsigned char> const bytes(data, data + size);
  std::size_t const parsed = manifest().parserReads();
  std::string const read = outcomeOf(
      bytes, [](opc::InputStream& source, FileSystemTree& tree) { manifest().read(source, tree); });
  if (manifest().parserReads() != parsed) return 0;

  std::string const validated =
      outcomeOf(bytes, [](opc::InputStream& source, FileSystemTree& tree) {
        manifest().readValidating(source, tree);
      });
  opcvk_fuzz::check(read == validated,
                    "a document read without the parser reads the same through the parser",
                    opcvk_fuzz::printable(std::string(bytes.begin(), bytes.end())) +
                        "\"\n*** without: " + read + "\n*** parser:  " + validated);
  return 0;
}
