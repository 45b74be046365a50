#include <algorithm>
#include <iostream>
#include <string>
#include <utility>

#include <fl/i18n/charset.h>
#include <opc/vkservices/content_types.h>
#include <opc/vkservices/ude_to_utf8_transform.h>

#include "content/text_recoding_transformer.h"

namespace opc {
namespace vkservices {
namespace {

// The name by which the detector's remarks call the text: a source has no name to give.
constexpr char const kDataName[] = "<unknown>";

}  // namespace

namespace detail {

std::unique_ptr<Transformer> makeRecodingTransformer(TransformSource& owner,
                                                     IContentSource& source) {
  return std::make_unique<TextRecodingTransformer>(owner, source, std::cout, kDataName);
}

}  // namespace detail

UDEToUTF8Transform::UDEToUTF8Transform(std::unique_ptr<IContentSource> source)
    : TransformSource(std::move(source)) {}

UDEToUTF8Transform::~UDEToUTF8Transform() = default;

bool UDEToUTF8Transform::mustTransformEntireStream() { return true; }

bool UDEToUTF8Transform::transformContentType(opc::model::ContentType const& input,
                                              opc::model::ContentType& output) {
  output = input;
  // Plain text states its encoding as a charset; other text types, such as the family's
  // own, carry it in a parameter of their own name.
  if (input == getTextContentType()) {
    output.addParameter(u"charset", u"utf-8");
  } else {
    output.addParameter(u"encoding", u"utf-8");
  }
  return true;
}

bool UDEToUTF8Transform::transformData(bytes const& input, bytes& output) {
  char const* const data = reinterpret_cast<char const*>(input.data());
  std::string const charset = fl::i18n::detect_charset(data, input.size(), std::cout, kDataName);
  if (charset == "UTF-8") {
    // Passed on as it is, a byte order mark included.
    output = input;
    return true;
  }
  // Failures of the conversion are the i18n library's exceptions and reach the caller as
  // they are.
  fl::i18n::codecvt_string_to_ustring const converter(charset, true);
  std::string const text = fl::i18n::ustring_to_utf8(converter.convert(data, input.size()));
  output.resize(text.size());
  std::copy(text.begin(), text.end(), output.begin());
  return true;
}

}  // namespace vkservices
}  // namespace opc
