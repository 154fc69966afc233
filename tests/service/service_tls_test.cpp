// Trust-failure flags of HTTPS requests performed by palvonauthd, against a
// loopback TLS server with certificates made by the test.
#include <gtest/gtest.h>
#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>
#include <string>

#include "PalvonAuthManager.h"
#include "service/ServiceHarness.h"

using namespace PalvonAuthManagerSDK;
using pam_test::Daemon;

namespace {

constexpr AMResult kTlsFailure = 0x8003;

std::string Home() { return std::getenv("HOME"); }

struct CertificateFiles {
  std::string certificate;
  std::string key;
};

// Writes a self-signed certificate (which is also its own CA) for the given
// subject alternative names, valid from `validFrom` to `validUntil` seconds
// relative to now.
CertificateFiles MakeCertificate(const std::string& name, const std::string& altNames, long validFrom,
                                 long validUntil) {
  EVP_PKEY* key = EVP_EC_gen("P-256");
  X509* certificate = X509_new();
  X509_set_version(certificate, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate), validFrom);
  X509_gmtime_adj(X509_getm_notAfter(certificate), validUntil);
  X509_set_pubkey(certificate, key);
  X509_NAME* subject = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("test server"), -1, -1,
                             0);
  X509_set_issuer_name(certificate, subject);
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  for (const auto& [nid, value] :
       {std::pair<int, std::string>{NID_subject_alt_name, altNames}, {NID_basic_constraints, "critical,CA:TRUE"}}) {
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
  }
  X509_sign(certificate, key, EVP_sha256());
  CertificateFiles files{Home() + "/" + name + ".crt", Home() + "/" + name + ".key"};
  FILE* out = std::fopen(files.certificate.c_str(), "w");
  PEM_write_X509(out, certificate);
  std::fclose(out);
  out = std::fopen(files.key.c_str(), "w");
  PEM_write_PrivateKey(out, key, nullptr, nullptr, 0, nullptr, nullptr);
  std::fclose(out);
  X509_free(certificate);
  EVP_PKEY_free(key);
  return files;
}

class Tls : public ::testing::Test {
 protected:
  void TearDown() override {
    if (IsInitialised()) {
      EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
    }
  }

  // Serves HTTPS with this certificate, starts the service with these
  // arguments, and sends one GET; returns the send's result.
  AMResult Fetch(const CertificateFiles& files, std::vector<std::string> args) {
    server_ = std::make_unique<pam_test::LoopbackHttp>(
        std::make_unique<httplib::SSLServer>(files.certificate.c_str(), files.key.c_str()));
    server_->Routes().Get("/", [](const httplib::Request&, httplib::Response& response) {
      response.set_content("secret", "text/plain");
    });
    server_->Start();
    daemon_ = std::make_unique<Daemon>(std::move(args));
    EXPECT_EQ(PalvonAuthManager_Initialize(), 0u);
    ConnectionHandle connection = 0;
    EXPECT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &connection), 0u);
    EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(connection, &handle_), 0u);
    EXPECT_EQ(PalvonAuthManager_SetRequestUrl(handle_, server_->Url("/", "https").c_str()), 0u);
    return PalvonAuthManager_SendRequestAndReceiveResponse(handle_);
  }

  AMUint Flags() {
    AMUint flags = 12345;
    EXPECT_EQ(PalvonAuthManager_GetResponseTrustFailureFlags(handle_, &flags), 0u);
    return flags;
  }

  AMUint Status() {
    AMUint status = 0;
    EXPECT_EQ(PalvonAuthManager_GetResponseStatusCode(handle_, &status), 0u);
    return status;
  }

  std::unique_ptr<pam_test::LoopbackHttp> server_;
  std::unique_ptr<Daemon> daemon_;
  AMHttpHandle handle_ = 0;
};

const char kLoopbackNames[] = "IP:127.0.0.1,DNS:localhost";

}  // namespace

TEST_F(Tls, TrustedCertificateForTheHostHasNoFlags) {
  const auto files = MakeCertificate("good", kLoopbackNames, -3600, 3600);
  // The configuration names the certificate as the trusted CA.
  ASSERT_EQ(Fetch(files, {"--config", pam_test::WriteFile(Home() + "/ca.toml",
                                                          "[http]\nca_file = \"" + files.certificate + "\"\n")}),
            0u);
  EXPECT_EQ(Status(), 200u);
  EXPECT_EQ(Flags(), 0u);
}

TEST_F(Tls, SelfSignedCertificateIsAnUntrustedRoot) {
  const auto files = MakeCertificate("self", kLoopbackNames, -3600, 3600);
  EXPECT_EQ(Fetch(files, {}), kTlsFailure);
  EXPECT_EQ(Flags(), 0x01u) << daemon_->LogText();
  AMUint status = 0;
  EXPECT_EQ(PalvonAuthManager_GetResponseStatusCode(handle_, &status), 0x8004u);
}

TEST_F(Tls, CertificateForAnotherHostIsAMismatch) {
  const auto files = MakeCertificate("other", "DNS:elsewhere.test", -3600, 3600);
  EXPECT_EQ(Fetch(files, {"--config", pam_test::WriteFile(Home() + "/ca.toml",
                                                          "[http]\nca_file = \"" + files.certificate + "\"\n")}),
            kTlsFailure);
  EXPECT_EQ(Flags(), 0x04u) << daemon_->LogText();
}

TEST_F(Tls, ExpiredCertificateIsFlagged) {
  const auto files = MakeCertificate("old", kLoopbackNames, -7200, -3600);
  EXPECT_EQ(Fetch(files, {"--config", pam_test::WriteFile(Home() + "/ca.toml",
                                                          "[http]\nca_file = \"" + files.certificate + "\"\n")}),
            kTlsFailure);
  EXPECT_EQ(Flags(), 0x02u) << daemon_->LogText();
}

TEST_F(Tls, InsecureModeFetchesAndSaysNothingWasChecked) {
  const auto files = MakeCertificate("any", "DNS:elsewhere.test", -7200, -3600);
  ASSERT_EQ(Fetch(files, {"--insecure"}), 0u);
  EXPECT_EQ(Status(), 200u);
  EXPECT_EQ(Flags(), 0x80u) << daemon_->LogText();
}
