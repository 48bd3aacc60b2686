// Calls a function that no library defines. A bundle built from this must
// fail to link, as it would on Windows, and not fail later when it is loaded.

extern "C" int qzekit_consumer_defined_nowhere();

extern "C" __attribute__((visibility("default"))) int qzekit_consumer_entry() {
    return qzekit_consumer_defined_nowhere();
}
