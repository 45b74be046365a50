// Sample texts for the tests of charset detection and text recoding: a few sentences of real
// prose each, long enough for a statistical detector, as the bytes of each encoding.  The
// UTF-8 form is the reference that every conversion is compared with.
#ifndef DATA_TEXT_SAMPLE_TEXTS_H_
#define DATA_TEXT_SAMPLE_TEXTS_H_

#include <string>

namespace opcvk_test {
namespace texts {

// French prose in the ISO-8859-1 repertoire.
inline std::string const kFrenchUtf8(
    "Il \303\251tait une fois, dans un petit village pr\303\250s de la for\303\252t, "
    "une jeune fille qui r\303\252vait de voyages. Chaque matin, elle allait "
    "\303\240 la fen\303\252tre et regardait les nuages passer au-dessus des "
    "collines. \302\253 Un jour, je verrai la mer \302\273, disait-elle \303\240 "
    "sa grand-m\303\250re, qui souriait sans r\303\251pondre. L'\303\251t\303\251 "
    "suivant, elle prit le train pour Marseille avec son fr\303\250re a\303\256n\303\251.\n",
    366);
inline std::string const kFrenchLatin1(
    "Il \351tait une fois, dans un petit village pr\350s de la for\352t, une "
    "jeune fille qui r\352vait de voyages. Chaque matin, elle allait \340 la "
    "fen\352tre et regardait les nuages passer au-dessus des collines. \253 "
    "Un jour, je verrai la mer \273, disait-elle \340 sa grand-m\350re, qui "
    "souriait sans r\351pondre. L'\351t\351 suivant, elle prit le train pour "
    "Marseille avec son fr\350re a\356n\351.\n",
    350);

// English prose with curly quotes, dashes, an ellipsis and the euro sign.
inline std::string const kQuotesUtf8(
    "\342\200\234Welcome back,\342\200\235 said the manager. \342\200\234Your "
    "room costs \342\202\254120 a night \342\200\223 breakfast included.\342\200\235 "
    "She didn\342\200\231t argue; the price was fair for a hotel so close to "
    "the station. \342\200\230We\342\200\231ll see,\342\200\231 she thought\342\200\246 "
    "and signed the form before the porter took her bags upstairs.\n",
    271);
inline std::string const kQuotesWindows1252(
    "\223Welcome back,\224 said the manager. \223Your room costs \200120 a night "
    "\226 breakfast included.\224 She didn\222t argue; the price was fair for "
    "a hotel so close to the station. \221We\222ll see,\222 she thought\205 "
    "and signed the form before the porter took her bags upstairs.\n",
    249);

// Japanese prose.
inline std::string const kJapaneseUtf8(
    "\346\230\224\343\200\205\343\200\201\343\201\202\343\202\213\345\261\261\343\201\256\346"
    "\235\221\343\201\253\343\200\201\343\201\212\343\201\230\343\201\204\343\201\225\343\202"
    "\223\343\201\250\343\201\212\343\201\260\343\201\202\343\201\225\343\202\223\343\201\214"
    "\344\275\217\343\202\223\343\201\247\343\201\204\343\201\276\343\201\227\343\201\237\343"
    "\200\202\343\201\212\343\201\230\343\201\204\343\201\225\343\202\223\343\201\257\346\257"
    "\216\346\227\245\345\261\261\343\201\270\346\237\264\345\210\210\343\202\212\343\201\253"
    "\343\200\201\343\201\212\343\201\260\343\201\202\343\201\225\343\202\223\343\201\257\345"
    "\267\235\343\201\270\346\264\227\346\277\257\343\201\253\350\241\214\343\201\215\343\201"
    "\276\343\201\227\343\201\237\343\200\202\343\201\202\343\202\213\346\227\245\343\200\201"
    "\343\201\212\343\201\260\343\201\202\343\201\225\343\202\223\343\201\214\345\267\235\343"
    "\201\247\346\264\227\346\277\257\343\202\222\343\201\227\343\201\246\343\201\204\343\202"
    "\213\343\201\250\343\200\201\345\244\247\343\201\215\343\201\252\346\241\203\343\201\214"
    "\343\201\251\343\202\223\343\201\266\343\202\211\343\201\223\343\200\201\343\201\251\343"
    "\202\223\343\201\266\343\202\211\343\201\223\343\201\250\346\265\201\343\202\214\343\201"
    "\246\343\201\215\343\201\276\343\201\227\343\201\237\343\200\202\n",
    325);
inline std::string const kJapaneseShiftJis(
    "\220\314\201X\201A\202\240\202\351\216R\202\314\221\272\202\311\201A\202\250\202\266\202"
    "\242\202\263\202\361\202\306\202\250\202\316\202\240\202\263\202\361\202\252\217Z\202\361"
    "\202\305\202\242\202\334\202\265\202\275\201B\202\250\202\266\202\242\202\263\202\361\202"
    "\315\226\210\223\372\216R\202\326\216\304\212\240\202\350\202\311\201A\202\250\202\316\202"
    "\240\202\263\202\361\202\315\220\354\202\326\220\364\221\363\202\311\215s\202\253\202\334"
    "\202\265\202\275\201B\202\240\202\351\223\372\201A\202\250\202\316\202\240\202\263\202\361"
    "\202\252\220\354\202\305\220\364\221\363\202\360\202\265\202\304\202\242\202\351\202\306"
    "\201A\221\345\202\253\202\310\223\215\202\252\202\307\202\361\202\324\202\347\202\261\201"
    "A\202\307\202\361\202\324\202\347\202\261\202\306\227\254\202\352\202\304\202\253\202\334"
    "\202\265\202\275\201B\n",
    217);

// Text from several scripts, with a character outside the basic plane (U+1F600).
inline std::string const kMixedUtf8(
    "\303\234ber den Wolken muss die Freiheit wohl grenzenlos sein. Gr\303\266\303\237e, "
    "Stra\303\237e, sch\303\266n. \316\232\316\261\316\273\316\267\316\274\316\255\317\201\316"
    "\261 \316\272\317\214\317\203\316\274\316\265. \320\237\321\200\320\270\320\262\320\265"
    "\321\202, \320\274\320\270\321\200. \343\201\223\343\202\223\343\201\253\343\201\241\343"
    "\201\257 \360\237\230\200 and the end.\n",
    168);
inline std::string const kMixedUtf16le(
    "\334\000b\000e\000r\000 \000d\000e\000n\000 \000W\000o\000l\000k\000e\000n\000 "
    "\000m\000u\000s\000s\000 \000d\000i\000e\000 \000F\000r\000e\000i\000h\000e\000i\000t\000"
    " \000w\000o\000h\000l\000 \000g\000r\000e\000n\000z\000e\000n\000l\000o\000s\000 "
    "\000s\000e\000i\000n\000.\000 \000G\000r\000\366\000\337\000e\000,\000 "
    "\000S\000t\000r\000a\000\337\000e\000,\000 \000s\000c\000h\000\366\000n\000.\000 "
    "\000\232\003\261\003\273\003\267\003\274\003\255\003\301\003\261\003 \000\272\003\314\003"
    "\303\003\274\003\265\003.\000 \000\037\004@\0048\0042\0045\004B\004,\000 "
    "\000<\0048\004@\004.\000 \000S0\2230k0a0o0 \000=\330\000\336 \000a\000n\000d\000 "
    "\000t\000h\000e\000 \000e\000n\000d\000.\000\n\000",
    258);
inline std::string const kMixedUtf16be(
    "\000\334\000b\000e\000r\000 \000d\000e\000n\000 \000W\000o\000l\000k\000e\000n\000 "
    "\000m\000u\000s\000s\000 \000d\000i\000e\000 \000F\000r\000e\000i\000h\000e\000i\000t\000"
    " \000w\000o\000h\000l\000 \000g\000r\000e\000n\000z\000e\000n\000l\000o\000s\000 "
    "\000s\000e\000i\000n\000.\000 \000G\000r\000\366\000\337\000e\000,\000 "
    "\000S\000t\000r\000a\000\337\000e\000,\000 \000s\000c\000h\000\366\000n\000.\000 "
    "\003\232\003\261\003\273\003\267\003\274\003\255\003\301\003\261\000 \003\272\003\314\003"
    "\303\003\274\003\265\000.\000 \004\037\004@\0048\0042\0045\004B\000,\000 "
    "\004<\0048\004@\000.\000 0S0\2230k0a0o\000 \330=\336\000\000 \000a\000n\000d\000 "
    "\000t\000h\000e\000 \000e\000n\000d\000.\000\n",
    258);

}  // namespace texts
}  // namespace opcvk_test

#endif  // DATA_TEXT_SAMPLE_TEXTS_H_
