// How the tool takes on the user's locale.
#ifndef TOOLS_OPCVK_USER_LOCALE_H_
#define TOOLS_OPCVK_USER_LOCALE_H_

namespace opcvk {

// Sets the categories of the C library's locale that the tool's results and messages depend
// on, from the environment, as setlocale(LC_ALL, "") would set them: the codeset of paths and
// names (LC_CTYPE), the decimal point of the sizes it prints (LC_NUMERIC) and the language of
// the system's error texts (LC_MESSAGES).  The other categories stay "C": nothing the tool
// prints depends on them.  Like setlocale(LC_ALL, ""), it changes nothing when the user's
// locale cannot be loaded.  Not thread-safe; call it before any thread starts.
void adoptUserLocale();

// Whether the environment `environment` (a null-terminated array of "NAME=value" texts, as
// environ) names one locale for every category: LC_ALL is set to a non-empty value, or no
// other variable whose name begins with "LC_" is.  Empty values count as unset, as the C
// library counts them.
bool environmentNamesOneLocale(char const* const* environment);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_USER_LOCALE_H_
