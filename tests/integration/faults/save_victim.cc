// The process whose saves the fault harness interrupts (run_faults.py).  It makes a package,
// changes one opened for Modify and saves it, and prints a package's content in a canonical
// form, so that the harness can tell the old package from the complete new one.
//
//   save_victim create PACKAGE [--big]   a new package with parts, relationships, a stored part
//   save_victim modify PACKAGE [--big] [--threads N] [--announce]
//                                        changes of every kind, then a save: a part added,
//                                        one rewritten, one deleted, relationships added and
//                                        removed, others copied unchanged; with --big, parts of
//                                        several MiB (stored and compressible); --announce
//                                        prints "saving" just before the save
//   save_victim resave PACKAGE           opens for Modify and saves without a change
//   save_victim dump PACKAGE             every part (name, type, size, SHA-256 of the content,
//                                        read to its end so that sizes and CRCs are checked)
//                                        and every relationship, sorted
//
// Exit status: 0 done; 1 an exception of the library's family, its message on standard error
// after "save_victim: "; 2 usage; 3 any other exception.  Right before a save, the process
// arms the fault shim if it was preloaded (see fault_shim.cc).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <exception>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>
#include <opc/model/package.h>

#include "../interop/sha256.h"

namespace {

using opc::interfaces::CompressionType;
using opc::model::ContentType;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PartName;
using opc::model::StandardPartInfo;
using opc::model::URI;

std::u16string const kRelType = u"http://example.com/relationships/fault";

std::string text(std::u16string const& value) { return opc::detail::toUTF8String(value); }

// Content that is the same in every run: a seeded stream of bytes, or of words (compressible).
std::string content(std::size_t size, unsigned seed, bool words) {
  std::mt19937 random(seed);
  std::string result;
  result.reserve(size);
  static char const* const kWords[] = {"package ", "part ", "save ", "rename ", "fsync\n",
                                       "crash ",   "disk ", "full ", "folder ", "lock "};
  while (result.size() < size) {
    if (words) {
      result += kWords[random() % 10];
    } else {
      result += static_cast<char>(random() & 0xFF);
    }
  }
  result.resize(size);
  return result;
}

// A part name longer than the archive writer keeps in memory.
std::u16string const kLongName = u"/docs/" + std::u16string(200, u'n') + u".txt";

void writePart(Package& package, std::u16string const& name, char16_t const* type,
               CompressionType compression, std::string const& bytes) {
  opc::model::Part part =
      package.createPart(PartName(name), ContentType(type), StandardPartInfo(compression, 0));
  opc::OutputStream& out = part.getOutputStream();
  out.write(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size());
  out.close();
}

void rewritePart(Package& package, std::u16string const& name, std::string const& bytes) {
  opc::OutputStream& out = package.getPart(PartName(name)).getOutputStream();
  out.write(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size());
  out.close();
}

void arm() {
  using Arm = void (*)();
  if (auto const armShim = reinterpret_cast<Arm>(::dlsym(RTLD_DEFAULT, "opcvkFaultArm"))) {
    armShim();
  }
}

opc::model::PackageOptions options(unsigned threads) {
  opc::model::PackageOptions result;
  result.compressionThreads = threads;
  return result;
}

void create(std::u16string const& path, bool big) {
  auto package = Package::open(path, PackageAccess::Create);
  writePart(*package, u"/a.xml", u"application/xml", CompressionType::DeflateMetadata,
            "<a>" + content(2000, 1, true) + "</a>");
  writePart(*package, u"/docs/b.txt", u"text/plain", CompressionType::DeflateContent,
            content(20000, 2, true));
  writePart(*package, u"/bin/c.bin", u"application/octet-stream", CompressionType::Stored,
            content(8000, 3, false));
  writePart(*package, u"/docs/kept.txt", u"text/plain", CompressionType::DeflateContent,
            content(5000, 4, true));
  // A name too long for the archive writer to keep: it is read back from the file at the save.
  writePart(*package, kLongName, u"text/plain", CompressionType::DeflateContent,
            content(3000, 6, true));
  if (big) {
    writePart(*package, u"/big/old.bin", u"application/octet-stream", CompressionType::Stored,
              content(std::size_t{2} << 20, 5, false));
  }
  package->createInternalRelationship(kRelType, URI(u"/a.xml"), u"rA");
  package->getPart(PartName(u"/a.xml"))
      .createInternalRelationship(kRelType, URI(u"docs/b.txt"), u"rB");
  package->save();
}

void modify(std::u16string const& path, bool big, unsigned threads, bool announce) {
  auto package = Package::open(path, PackageAccess::Modify, options(threads));
  writePart(*package, u"/new/d.txt", u"text/plain", CompressionType::DeflateContent,
            content(30000, 10, true));
  writePart(*package, u"/new/e.bin", u"application/octet-stream", CompressionType::Stored,
            content(3000, 11, false));
  writePart(*package, kLongName + u".new", u"text/plain", CompressionType::DeflateContent,
            content(4000, 15, true));
  rewritePart(*package, u"/a.xml", "<a>" + content(4000, 12, true) + "</a>");
  package->deletePart(PartName(u"/bin/c.bin"));
  package->createInternalRelationship(kRelType, URI(u"/new/d.txt"), u"rD");
  package->getPart(PartName(u"/a.xml")).deleteRelationship(u"rB");
  if (big) {
    writePart(*package, u"/big/new.bin", u"application/octet-stream", CompressionType::Stored,
              content(std::size_t{3} << 20, 13, false));
    writePart(*package, u"/big/new.txt", u"text/plain", CompressionType::DeflateContent,
              content(std::size_t{6} << 20, 14, true));
  }
  if (announce) {
    std::fputs("saving\n", stdout);
    std::fflush(stdout);
  }
  arm();
  package->save();
}

void resave(std::u16string const& path) {
  auto package = Package::open(path, PackageAccess::Modify);
  package->save();
}

std::string digest(Package& package, PartName const& name) {
  opc::InputStream& in = package.getPart(name).getInputStream();
  opcvk_interop::Sha256 hash;
  std::vector<unsigned char> buffer(1 << 16);
  std::uint64_t size = 0;
  in.open();
  while (std::size_t const n = in.read(buffer.data(), buffer.size())) {
    hash.update(buffer.data(), n);
    size += n;
  }
  in.close();
  return std::to_string(size) + " " + hash.hexDigest();
}

void dump(std::u16string const& path) {
  auto package = Package::open(path, PackageAccess::Read);
  std::vector<std::string> lines;
  auto addRelationships = [&](opc::model::RelationshipSource const& source) {
    for (opc::model::Relationship const& r : source.getRelationships()) {
      lines.push_back("relationship " + text(source.getSourceURI().toString()) + " " +
                      text(r.getID()) + " " + text(r.getType()) + " " +
                      text(r.getTargetURI().toString()));
    }
  };
  addRelationships(*package);
  for (opc::model::Part const& part : package->getParts()) {
    lines.push_back("part " + text(part.getName().toString()) + " " +
                    text(part.getContentType().toString()) + " " +
                    digest(*package, part.getName()));
    addRelationships(part);
  }
  std::sort(lines.begin(), lines.end());
  for (std::string const& line : lines) std::printf("%s\n", line.c_str());
}

int usage() {
  std::fputs(
      "usage: save_victim create|modify|resave|dump PACKAGE [--big] [--threads N] "
      "[--announce]\n",
      stderr);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return usage();
  std::string const command = argv[1];
  std::u16string const path = opc::detail::toStringFromUTF8String(argv[2]);
  bool big = false;
  bool announce = false;
  unsigned threads = 1;
  for (int i = 3; i < argc; ++i) {
    std::string const option = argv[i];
    if (option == "--big") {
      big = true;
    } else if (option == "--announce") {
      announce = true;
    } else if (option == "--threads" && i + 1 < argc) {
      threads = static_cast<unsigned>(std::atoi(argv[++i]));
    } else {
      return usage();
    }
  }
  try {
    if (command == "create") {
      create(path, big);
    } else if (command == "modify") {
      modify(path, big, threads, announce);
    } else if (command == "resave") {
      resave(path);
    } else if (command == "dump") {
      dump(path);
    } else {
      return usage();
    }
  } catch (opc::Exception const& e) {
    std::fprintf(stderr, "save_victim: %s\n", e.what());
    return 1;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "save_victim: unexpected exception: %s\n", e.what());
    return 3;
  }
  return 0;
}
