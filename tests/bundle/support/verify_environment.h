#pragma once

// The test trust store of the bundle tests: made before the first test of
// the program runs, because libcrypto reads its default certificate paths
// once, when the kit builds its store.

#if !defined(_WIN32)

#include "bundle/support/verify_pki.h"

namespace qzetest {

// The certificates, keys and trust store of this test program. OpenSSL's
// SSL_CERT_FILE and SSL_CERT_DIR point at the store.
const TestPki& VerifyPki();

}  // namespace qzetest

#endif  // !defined(_WIN32)
