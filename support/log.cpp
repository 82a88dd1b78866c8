// The three logs and the trace.
#include <kallib/kallib.h>

extern "C" uint32_t kalTrace(const char16_t*, ...) { return KAL_SUCCESS; }
extern "C" uint32_t kalError(const char16_t*, ...) { return KAL_SUCCESS; }
extern "C" uint32_t kalWarning(const char16_t*, ...) { return KAL_SUCCESS; }
extern "C" uint32_t kalDebug(const char16_t*, ...) { return KAL_SUCCESS; }
extern "C" void kalLogSetSink(KALLogSink, void*) {}
