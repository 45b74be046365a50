// Owning handles for the ICU objects that libvki18n_icu opens, so that every path out of an
// operation, an exception included, closes them.  Private to the library.
#ifndef FL_I18N_ICU_ICU_HANDLES_H_
#define FL_I18N_ICU_ICU_HANDLES_H_

#include <memory>

#include <unicode/ucnv.h>
#include <unicode/ucsdet.h>

namespace fl {
namespace i18n {
namespace detail {

struct DetectorCloser {
  void operator()(UCharsetDetector* detector) const { ucsdet_close(detector); }
};
using DetectorHandle = std::unique_ptr<UCharsetDetector, DetectorCloser>;

struct ConverterCloser {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using ConverterHandle = std::unique_ptr<UConverter, ConverterCloser>;

}  // namespace detail
}  // namespace i18n
}  // namespace fl

#endif  // FL_I18N_ICU_ICU_HANDLES_H_
