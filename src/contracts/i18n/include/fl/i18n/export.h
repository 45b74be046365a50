// Export macro of the internationalisation library (libvki18n).
#ifndef FL_I18N_EXPORT_H_
#define FL_I18N_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define FL_I18N_EXPORT __attribute__((visibility("default")))
#else
#define FL_I18N_EXPORT
#endif

#endif  // FL_I18N_EXPORT_H_
