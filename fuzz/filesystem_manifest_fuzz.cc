// The manifest of a package file system, in both of its forms: parsing and validation against
// the two cached grammars, permissions and dates by the rules of each form, and the tree that
// results.  The reader may refuse a document only with an opc::Exception (the model's
// InvalidPartContent for the document and its values, the tree's own for a path that repeats,
// lacks its "/" or is longer or deeper than the tree takes) or std::out_of_range (an empty name of
// the older form).  A document that it accepts is written again in its own form (version "1.0" by
// writeV1, any other by write), and reads back as the same tree; only the older form may be refused
// again, for a folder path or link target that is no URI.
//
// Input: the bytes of a manifest document.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <opc/core/exception.h>
#include <opc/core/stream_adaptors.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"
#include "fuzz_support.h"
#include "manifest_shape.h"

namespace {

using opc::vkservices::FileSystemManifestXml;
using opc::vkservices::FileSystemTree;
using opcvk_fuzz::check;

FileSystemManifestXml& manifest() {
  static FileSystemManifestXml instance;
  return instance;
}

// Reads `bytes` into `tree`; false, with the reason in `why`, if the reader refused the
// document as it may.
bool read(std::vector<unsigned char> const& bytes, FileSystemTree& tree, std::string const& shown,
          std::string& why) {
  try {
    opc::ByteArrayInAdaptor source(bytes);
    manifest().read(source, tree);
    return true;
  } catch (opc::Exception const& e) {
    why = e.what();
    return false;
  } catch (std::out_of_range const& e) {
    why = e.what();
    return false;
  } catch (std::exception const& e) {
    opcvk_fuzz::fail("only the documented exceptions are thrown",
                     "read on \"" + shown + "\" threw " + e.what());
  } catch (...) {
    opcvk_fuzz::fail("only the documented exceptions are thrown",
                     "read on \"" + shown + "\" threw something that is no std::exception");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<unsigned char> const bytes(data, data + size);
  std::string const shown = opcvk_fuzz::printable(std::string(bytes.begin(), bytes.end()));

  FileSystemTree tree;
  std::string why;
  if (!read(bytes, tree, shown, why)) return 0;
  bool const olderForm = tree.getVersion() == u"1.0";

  // Whatever was read can be written in its own form; a name that XML cannot carry is the
  // one refusal the writer has, and a document that was read carries none.
  std::vector<unsigned char> written;
  opcvk_fuzz::mustNotThrow("writing what was read", shown, [&] {
    opc::ByteArrayOutAdaptor target(written);
    if (olderForm) {
      manifest().writeV1(tree, target);
    } else {
      manifest().write(tree, target);
    }
  });

  std::string const shownWritten =
      shown + "\" written as \"" +
      opcvk_fuzz::printable(std::string(written.begin(), written.end()));
  FileSystemTree again;
  bool const readBack = read(written, again, shownWritten, why);
  // The older form types `content` as anyURI, and writeV1 puts a folder's own path and a
  // link's target text there as they are: a path that is no URI ("/a]b", "/c%zz") makes a
  // document that the older grammar refuses.  Any other refusal is a finding.
  if (!readBack && olderForm && why.find("is invalid anyURI") != std::string::npos) return 0;
  check(readBack, "a written manifest reads back", shownWritten + "\"\n*** refused: " + why);
  check(opcvk_fuzz::manifestShapeOf(again) == opcvk_fuzz::manifestShapeOf(tree),
        "a written manifest reads back as the same tree",
        shownWritten + "\"\n*** read:  " + opcvk_fuzz::manifestShapeOf(tree) +
            "\n*** again: " + opcvk_fuzz::manifestShapeOf(again));
  return 0;
}
