#include <map>

#include <opc/core/string_conversions.h>
#include <opc/vkservices/content_types.h>

namespace opc {
namespace vkservices {
namespace {

using opc::model::ContentType;
using ExtensionTable = std::map<std::u16string, ContentType>;

// Ordinary files: the key is the extension without its dot, as FileSystemOps gives it.
struct FileRow {
  char16_t const* extension;
  char16_t const* type;
};

constexpr FileRow kFileRows[] = {
    {u"jpeg", u"image/jpeg"},
    {u"png", u"image/png"},
    {u"gif", u"image/gif"},
    {u"bmp", u"image/bmp"},
    {u"svg", u"image/svg+xml"},
    {u"tif", u"image/tiff"},
    {u"tiff", u"image/tiff"},
    {u"txt", u"text/plain"},
    {u"html", u"text/html"},
    {u"json", u"application/json"},
    {u"xml", u"application/xml"},
    // The product's code files are plain text; the code type belongs to "ovl".
    {u"ovc", u"text/plain"},
    {u"ovl", u"application/vnd.veltrance.orvane.code"},
    {u"ovm", u"application/vnd.veltrance.orvane.workspaceData"},
    {u"ovapp", u"application/vnd.veltrance.orvane.app"},
    {u"ovappinstall", u"application/vnd.veltrance.orvane.appInstaller"},
    {u"ovtbx", u"application/vnd.veltrance.orvane.toolbox"},
    {u"ovdatx", u"application/vnd.veltrance.orvane.data-export"},
    {u"ovproj", u"application/vnd.veltrance.project.archive"},
    {u"dyx", u"application/vnd.veltrance.dynalith.model"},
    {u"dyxp", u"application/vnd.veltrance.dynalith.protectedmodel"},
    {u"dydd", u"application/vnd.veltrance.dynalith.dataDictionary"},
    {u"dytx", u"application/vnd.veltrance.dynalith.template"},
    {u"fmx", u"application/vnd.veltrance.orvane.flowmarchchart"},
};

// The product's executables, one per platform.  Unlike the rows above these keys keep their
// dot, so the path form of the lookup (whose extensions come without one) never reaches
// them: a caller that knows it holds an executable asks with the dot itself.
struct ExecutableRow {
  char const* platform;
  char const* extension;
};

constexpr ExecutableRow kExecutableRows[] = {
    {"linux-x86-64", ".ovxa64"},    {"linux-arm-32", ".ovxlinuxarm"},
    {"macos-x86-64", ".ovxmacx64"}, {"win32", ".ovxw32"},
    {"win64", ".ovxw64"},
};

ExtensionTable buildTable() {
  ExtensionTable table;
  for (FileRow const& row : kFileRows) {
    table.emplace(row.extension, ContentType(row.type));
  }
  std::u16string const executable = getORVANEExecutableContentType().toString();
  for (ExecutableRow const& row : kExecutableRows) {
    std::u16string const key = opc::toString(row.extension, true);
    std::u16string const platform = opc::toString(row.platform, true);
    // emplace keeps a row that is already there.
    table.emplace(key, ContentType(executable + u";platform=" + platform));
  }
  return table;
}

// Built once, on first use; C++ makes the initialisation of a function-local static
// thread-safe, and nothing writes to the table afterwards.
ExtensionTable const& extensionTable() {
  static ExtensionTable const table = buildTable();
  return table;
}

}  // namespace

ContentType getBMPContentType() { return ContentType(u"image/bmp"); }
ContentType getGIFContentType() { return ContentType(u"image/gif"); }
ContentType getHTMLContentType() { return ContentType(u"text/html"); }
ContentType getJPEGContentType() { return ContentType(u"image/jpeg"); }
ContentType getJSONContentType() { return ContentType(u"application/json"); }
ContentType getPNGContentType() { return ContentType(u"image/png"); }
ContentType getSVGContentType() { return ContentType(u"image/svg+xml"); }
ContentType getTIFFContentType() { return ContentType(u"image/tiff"); }
ContentType getTextContentType() { return ContentType(u"text/plain"); }
ContentType getXMLContentType() { return ContentType(u"application/xml"); }

ContentType getORVANEAppContentType() {
  return ContentType(u"application/vnd.veltrance.orvane.app");
}

ContentType getORVANEAppInstallerContentType() {
  return ContentType(u"application/vnd.veltrance.orvane.appInstaller");
}

ContentType getORVANECodeContentType() {
  return ContentType(u"application/vnd.veltrance.orvane.code");
}

ContentType getORVANEDataExportContentType() {
  return ContentType(u"application/vnd.veltrance.orvane.data-export");
}

ContentType getORVANEDefaultContentType() {
  return ContentType(u"application/vnd.veltrance.orvane.filesystemDefault");
}

ContentType getORVANEExecutableContentType() {
  return ContentType(u"application/vnd.veltrance.orvane.orvaneExecutable");
}

ContentType getORVANEProjectContentType() {
  return ContentType(u"application/vnd.veltrance.project.archive");
}

ContentType getORVANEToolboxContentType() {
  return ContentType(u"application/vnd.veltrance.orvane.toolbox");
}

ContentType getORVANEVariableDataContentType() {
  return ContentType(u"application/vnd.veltrance.orvane.workspaceData");
}

ContentType getDynalithDataDictionaryContentType() {
  return ContentType(u"application/vnd.veltrance.dynalith.dataDictionary");
}

ContentType getDynalithModelContentType() {
  return ContentType(u"application/vnd.veltrance.dynalith.model");
}

ContentType getDynalithProtectedModelContentType() {
  return ContentType(u"application/vnd.veltrance.dynalith.protectedmodel");
}

ContentType getDynalithTemplateContentType() {
  return ContentType(u"application/vnd.veltrance.dynalith.template");
}

ContentType getFlowmarchChartContentType() {
  return ContentType(u"application/vnd.veltrance.orvane.flowmarchchart");
}

ContentType lookupContentType(std::u16string const& extension, ContentType const& defaultType) {
  ExtensionTable const& table = extensionTable();
  auto found = table.find(extension);
  return found != table.end() ? found->second : defaultType;
}

ContentType lookupContentType(opc::FileSystemOps& fileSystem, std::u16string const& path,
                              ContentType const& defaultType) {
  return lookupContentType(fileSystem.getExtension(path), defaultType);
}

}  // namespace vkservices
}  // namespace opc
