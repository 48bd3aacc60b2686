// Needs the function that only the full build of its dependency has.

#if defined(_WIN32)
#define SYMBOL_USER_API extern "C" __declspec(dllexport)
#else
#define SYMBOL_USER_API extern "C" __attribute__((visibility("default")))
#endif

extern "C" const char* SymbolDepExtra();

SYMBOL_USER_API const char* SymbolUserCall() {
    return SymbolDepExtra();
}
