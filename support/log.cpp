// The three logs and the trace.
#include <kallib/kallib.h>

extern "C" uint32_t kalTrace(const char16_t*, ...) { return KAL_SUCCESS; }
