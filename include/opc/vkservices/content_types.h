// The content types of the product family, and the table that finds the type of a file by
// its extension.
#ifndef OPC_VKSERVICES_CONTENT_TYPES_H_
#define OPC_VKSERVICES_CONTENT_TYPES_H_

#include <string>

#include <opc/core/file_system_ops.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

// Each function returns a new ContentType, without parameters, that the caller owns.  They
// hold no state and may be called from any thread.  None raises but std::bad_alloc.

// "image/bmp"
OPCVK_EXPORT opc::model::ContentType getBMPContentType();
// "image/gif"
OPCVK_EXPORT opc::model::ContentType getGIFContentType();
// "text/html"
OPCVK_EXPORT opc::model::ContentType getHTMLContentType();
// "image/jpeg"
OPCVK_EXPORT opc::model::ContentType getJPEGContentType();
// "application/json"
OPCVK_EXPORT opc::model::ContentType getJSONContentType();
// "image/png"
OPCVK_EXPORT opc::model::ContentType getPNGContentType();
// "image/svg+xml"
OPCVK_EXPORT opc::model::ContentType getSVGContentType();
// "image/tiff"
OPCVK_EXPORT opc::model::ContentType getTIFFContentType();
// "text/plain"
OPCVK_EXPORT opc::model::ContentType getTextContentType();
// "application/xml"
OPCVK_EXPORT opc::model::ContentType getXMLContentType();
// "application/vnd.veltrance.orvane.app"
OPCVK_EXPORT opc::model::ContentType getORVANEAppContentType();
// "application/vnd.veltrance.orvane.appInstaller"
OPCVK_EXPORT opc::model::ContentType getORVANEAppInstallerContentType();
// "application/vnd.veltrance.orvane.code"
OPCVK_EXPORT opc::model::ContentType getORVANECodeContentType();
// "application/vnd.veltrance.orvane.data-export"
OPCVK_EXPORT opc::model::ContentType getORVANEDataExportContentType();
// "application/vnd.veltrance.orvane.filesystemDefault": the type of a file whose extension
// names no known type.
OPCVK_EXPORT opc::model::ContentType getORVANEDefaultContentType();
// "application/vnd.veltrance.orvane.orvaneExecutable"; the table gives it with a parameter
// "platform" that names the platform the executable was made for.
OPCVK_EXPORT opc::model::ContentType getORVANEExecutableContentType();
// "application/vnd.veltrance.project.archive" (under "project", not "orvane")
OPCVK_EXPORT opc::model::ContentType getORVANEProjectContentType();
// "application/vnd.veltrance.orvane.toolbox"
OPCVK_EXPORT opc::model::ContentType getORVANEToolboxContentType();
// "application/vnd.veltrance.orvane.workspaceData"
OPCVK_EXPORT opc::model::ContentType getORVANEVariableDataContentType();
// "application/vnd.veltrance.dynalith.dataDictionary"
OPCVK_EXPORT opc::model::ContentType getDynalithDataDictionaryContentType();
// "application/vnd.veltrance.dynalith.model"
OPCVK_EXPORT opc::model::ContentType getDynalithModelContentType();
// "application/vnd.veltrance.dynalith.protectedmodel"
OPCVK_EXPORT opc::model::ContentType getDynalithProtectedModelContentType();
// "application/vnd.veltrance.dynalith.template"
OPCVK_EXPORT opc::model::ContentType getDynalithTemplateContentType();
// "application/vnd.veltrance.orvane.flowmarchchart" (under "orvane")
OPCVK_EXPORT opc::model::ContentType getFlowmarchChartContentType();

// The type that the extension table gives for `extension`, or a copy of `defaultType` if the
// table has no such key.  The caller owns the result; changing it changes nothing else.
//
// The key is matched exactly, code unit by code unit: no case folding ("JPEG" and "Txt" are
// not found) and no dot is added or removed.  The table has two groups of keys:
//  - ordinary files, without a dot: "jpeg", "png", "gif", "bmp", "svg", "tif", "tiff",
//    "txt", "html", "json", "xml", and the product's own "ovc" (plain text), "ovl", "ovm",
//    "ovapp", "ovappinstall", "ovtbx", "ovdatx", "ovproj", "dyx", "dyxp", "dydd", "dytx",
//    "fmx".  The short forms "jpg" and "htm" are not keys.
//  - the product's executables, with their dot: ".ovxa64" ("linux-x86-64"),
//    ".ovxlinuxarm" ("linux-arm-32"), ".ovxmacx64" ("macos-x86-64"), ".ovxw32" ("win32"),
//    ".ovxw64" ("win64"), each giving getORVANEExecutableContentType() with the parameter
//    "platform" set to the platform named.
//
// The table is built on the first lookup, once per process, by a thread-safe
// initialisation, and is never changed afterwards: lookups from any number of threads are
// safe without a lock.  Raises nothing but std::bad_alloc.
OPCVK_EXPORT opc::model::ContentType lookupContentType(std::u16string const& extension,
                                                       opc::model::ContentType const& defaultType);

// As above, with the extension of `path` as `fileSystem.getExtension(path)` gives it.
// FileSystemOps gives the extension without its dot, so through this form the files of the
// first group are found and the executables are not: they answer callers that pass ".ovxw64"
// themselves.  A failure of getExtension passes through as the opc::Exception it raises.
// Thread safety is that of `fileSystem`.
OPCVK_EXPORT opc::model::ContentType lookupContentType(opc::FileSystemOps& fileSystem,
                                                       std::u16string const& path,
                                                       opc::model::ContentType const& defaultType);

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_CONTENT_TYPES_H_
