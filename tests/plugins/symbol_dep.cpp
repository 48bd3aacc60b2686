// A plain library built twice under one name: the full build has both
// functions, the short one lacks SymbolDepExtra.

#if defined(_WIN32)
#define SYMBOL_DEP_API extern "C" __declspec(dllexport)
#else
#define SYMBOL_DEP_API extern "C" __attribute__((visibility("default")))
#endif

SYMBOL_DEP_API const char* SymbolDepBase() {
    return "base";
}

#if defined(QZEKIT_TEST_FULL_DEP)
SYMBOL_DEP_API const char* SymbolDepExtra() {
    return "extra";
}
#endif
