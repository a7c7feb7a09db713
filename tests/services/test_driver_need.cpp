// A library, and with NEEDY a driver that needs it: tests see what happens when it is missing.
#ifdef _WIN32
#define EXPORTED __declspec(dllexport)
#else
#define EXPORTED __attribute__((visibility("default")))
#endif

extern "C" int needed();
#ifdef NEEDY
extern "C" EXPORTED int needy() { return needed(); }
#else
extern "C" EXPORTED int needed() { return 1; }
#endif
