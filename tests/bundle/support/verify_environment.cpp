#include "bundle/support/verify_environment.h"

#if !defined(_WIN32)

#include <gtest/gtest.h>
#include <stdlib.h>

#include <random>
#include <system_error>

namespace qzetest {
namespace {

TestPki* g_pki = nullptr;

class VerifyEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        std::random_device random;
        dir_ = std::filesystem::temp_directory_path() /
               ("qzekit_verify_pki_" + std::to_string(random()) + std::to_string(random()));
        pki_ = MakeTestPki(dir_);
        // OpenSSL's own variables; the kit reads none.
        ::setenv("SSL_CERT_FILE", pki_.trustFile.c_str(), 1);
        ::setenv("SSL_CERT_DIR", pki_.trustDir.c_str(), 1);
        g_pki = &pki_;
    }
    void TearDown() override {
        g_pki = nullptr;
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }

private:
    std::filesystem::path dir_;
    TestPki pki_;
};

::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new VerifyEnvironment);

}  // namespace

const TestPki& VerifyPki() {
    return *g_pki;
}

}  // namespace qzetest

#endif  // !defined(_WIN32)
