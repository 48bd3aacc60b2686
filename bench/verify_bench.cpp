// Cost of verifying a signed library with both checks on, against doing the
// same work with libcrypto directly in the same process: the MD5 of the
// file and CMS_verify of its appended signature against the same trust
// store (what `openssl md5` and `openssl cms -verify -purpose any` do).
//
//   qzekit_verify_bench [--reps=N] [--size-mb=N]
//
// The library is the kit's own shared library, padded to the size asked
// for, signed with an RSA 3072 certificate below a test CA and intermediate.
// Repetitions interleave the two sides; medians are printed with their
// ratio.

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509_vfy.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "base/utf_string_conversions.h"
#include "bundle/lib_file_verify.h"
#include "bundle/library_signer.h"
#include "bundle/sign_verify.h"
#include "bundle/support/verify_pki.h"
#include "kit/log_service.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

class DiscardingLogger : public qzextensionkit::IQZELogger {
public:
    void Log(int, std::string text) override { bytes_ += text.size(); }
    std::size_t bytes_ = 0;
};

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

template <class F>
double TimeMs(F&& f) {
    auto start = Clock::now();
    f();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct StoreFree {
    void operator()(X509_STORE* store) const { X509_STORE_free(store); }
};

// The baseline: read the file, MD5 it, cut the signature off its end and
// verify it, chain included, with libcrypto's own calls.
bool DirectCheck(const fs::path& path, X509_STORE* store, std::string* md5) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        return false;
    }
    std::string bytes(static_cast<std::size_t>(fs::file_size(path)), '\0');
    std::size_t got = std::fread(&bytes[0], 1, bytes.size(), f);
    std::fclose(f);
    if (got != bytes.size() || bytes.size() < 40) {
        return false;
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr) != 1) {
        return false;
    }
    md5->assign(reinterpret_cast<const char*>(digest), length);
    const auto* tail = reinterpret_cast<const unsigned char*>(bytes.data() + bytes.size() - 32);
    uint32_t size = (uint32_t(tail[0]) << 24) | (uint32_t(tail[1]) << 16) |
                    (uint32_t(tail[2]) << 8) | uint32_t(tail[3]);
    std::size_t contentSize = bytes.size() - 40 - size;
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data() + contentSize);
    std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)> cms(
        d2i_CMS_ContentInfo(nullptr, &p, size), &CMS_ContentInfo_free);
    std::unique_ptr<BIO, decltype(&BIO_free)> content(
        BIO_new_mem_buf(bytes.data(), static_cast<int>(contentSize)), &BIO_free);
    return cms && content &&
           CMS_verify(cms.get(), nullptr, store, content.get(), nullptr,
                      CMS_DETACHED | CMS_BINARY) == 1;
}

}  // namespace

int main(int argc, char** argv) {
    int reps = 31;
    int sizeMb = 5;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--reps=", 7) == 0) {
            reps = std::max(1, std::atoi(argv[i] + 7));
        } else if (std::strncmp(argv[i], "--size-mb=", 10) == 0) {
            sizeMb = std::max(1, std::atoi(argv[i] + 10));
        } else {
            std::fprintf(stderr, "usage: %s [--reps=N] [--size-mb=N]\n", argv[0]);
            return 2;
        }
    }

    std::random_device random;
    fs::path dir = fs::temp_directory_path() /
                   ("qzekit_verify_bench_" + std::to_string(random()) + std::to_string(random()));
    qzetest::TestPki pki = qzetest::MakeTestPki(dir, true);
    // Before the kit's first check: libcrypto reads these once.
    ::setenv("SSL_CERT_FILE", pki.trustFile.c_str(), 1);
    ::setenv("SSL_CERT_DIR", pki.trustDir.c_str(), 1);

    std::string library = qzetest::ReadBytes(QZEKIT_BENCH_KIT_LIBRARY);
    std::mt19937 fill(7);
    while (library.size() < static_cast<std::size_t>(sizeMb) * 1024 * 1024) {
        library.push_back(static_cast<char>(fill()));
    }
    fs::path path = dir / "bundle_library.so";
    qzetest::WriteBytes(path, library);
    std::wstring widePath = base::UTF8ToWide(path.string());

    qzextensionkit::LibrarySigningInput input;
    input.certificatePath = base::UTF8ToWide(pki.signer.certPath.string());
    input.keyPath = base::UTF8ToWide(pki.signer.keyPath.string());
    input.chainPath = base::UTF8ToWide(pki.intermediate.certPath.string());
    std::string error;
    qzextensionkit::ManifestDigests texts;
    if (!qzextensionkit::SignLibraryFile(widePath, input, &error) ||
        !qzextensionkit::ComputeManifestDigests(widePath, &texts, &error)) {
        std::fprintf(stderr, "signing failed: %s\n", error.c_str());
        return 1;
    }
    qzextensionkit::QZELogService::GetInstance()->RegisterLogger(new DiscardingLogger);

    std::unique_ptr<X509_STORE, StoreFree> store(X509_STORE_new());
    X509_STORE_set_default_paths(store.get());
    X509_STORE_set_purpose(store.get(), X509_PURPOSE_ANY);

    auto* fileCheck = qzextensionkit::QZEExtensionLibFileVerify::GetInstance();
    auto* signCheck = qzextensionkit::QZEExtensionSignVerify::GetInstance();
    bool ok = true;
    auto kitBoth = [&] {
        ok = fileCheck->Verify(widePath, texts.libFileMD5) &&
             signCheck->Verify(widePath, texts.signMD5, texts.libFileMD5) && ok;
    };
    auto kitFile = [&] { ok = fileCheck->Verify(widePath, texts.libFileMD5) && ok; };
    auto kitSign = [&] { ok = signCheck->Verify(widePath, texts.signMD5, texts.libFileMD5) && ok; };
    std::string md5;
    auto direct = [&] { ok = DirectCheck(path, store.get(), &md5) && ok; };

    // One warm-up round: page cache, trust store, libcrypto's tables.
    kitBoth();
    direct();
    std::vector<double> both, file, sign, base;
    for (int i = 0; i < reps; ++i) {
        both.push_back(TimeMs(kitBoth));
        base.push_back(TimeMs(direct));
        file.push_back(TimeMs(kitFile));
        sign.push_back(TimeMs(kitSign));
    }
    std::uintmax_t signedSize = fs::file_size(path);
    std::error_code ignored;
    fs::remove_all(dir, ignored);
    if (!ok) {
        std::fprintf(stderr, "a check failed during the run\n");
        return 1;
    }

    double kit = Median(both);
    double ref = Median(base);
    std::printf("signed library: %.2f MB, RSA 3072 signer, SHA-256, %d interleaved repetitions\n",
                static_cast<double>(signedSize) / (1024.0 * 1024.0), reps);
    std::printf("%-44s %10s\n", "", "median ms");
    std::printf("%-44s %10.3f\n", "kit: file check + signature check", kit);
    std::printf("%-44s %10.3f\n", "  kit: file check alone", Median(file));
    std::printf("%-44s %10.3f\n", "  kit: signature check alone", Median(sign));
    std::printf("%-44s %10.3f\n", "libcrypto: MD5 + CMS_verify", ref);
    std::printf("kit / libcrypto: %.2f (target at most 1.30)\n", kit / ref);
    return 0;
}
