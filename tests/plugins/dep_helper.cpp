// The dependency of the dependent library: a plain library with one export,
// nothing of the kit in it.

#if defined(_WIN32)
#define DEP_HELPER_API extern "C" __declspec(dllexport)
#else
#define DEP_HELPER_API extern "C" __attribute__((visibility("default")))
#endif

DEP_HELPER_API const char* DepHelperGreeting() {
    return "hello from the bundle's bin";
}
