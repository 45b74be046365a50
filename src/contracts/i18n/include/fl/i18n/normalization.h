// fl::i18n Unicode normalisation.
#ifndef FL_I18N_NORMALIZATION_H_
#define FL_I18N_NORMALIZATION_H_

#include <string>

#include <fl/i18n/export.h>

namespace fl {
namespace i18n {

// The Normalization Form C (canonical composition) of UTF-16 `text`, so that text typed on
// systems that compose differently ("e" followed by U+0301, or U+00E9) compares and hashes
// the same.  Text that is already in NFC comes back unchanged; empty text gives empty text.
//
// Raises I18nError (declared in <fl/i18n/charset.h>) if `text` holds an unpaired surrogate,
// which is no character and has no normal form, or if ICU fails.  The message never quotes
// the text, which may be a secret such as a password.  Text below U+0300, which is in NFC as
// it stands, is answered without ICU; other text loads ICU, and raises I18nError naming the
// library and the reason if that fails.  Thread-safe.
FL_I18N_EXPORT std::u16string normalizeNfc(std::u16string const& text);

}  // namespace i18n
}  // namespace fl

#endif  // FL_I18N_NORMALIZATION_H_
