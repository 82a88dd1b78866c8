// The text of every status of the code space.
#include <kallib/kallib.h>

extern "C" const char16_t* kalErrorGetString(uint32_t) { return u"Unknown"; }
