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

// Serves HTTPS with this certificate, starts the service with these
// arguments, and sends one GET; checks the send's result, the response
// status (or the "no response" error) and the trust-failure flags.
void ExpectFetch(const CertificateFiles& files, std::vector<std::string> args, AMResult sent, AMUint status,
                 AMUint flags) {
  pam_test::LoopbackHttp server(std::make_unique<httplib::SSLServer>(files.certificate.c_str(), files.key.c_str()));
  server.Routes().Get(
      "/", [](const httplib::Request&, httplib::Response& response) { response.set_content("secret", "text/plain"); });
  server.Start();
  Daemon daemon(std::move(args));
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  ConnectionHandle connection = 0;
  AMHttpHandle handle = 0;
  EXPECT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &connection), 0u);
  EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(connection, &handle), 0u);
  EXPECT_EQ(PalvonAuthManager_SetRequestUrl(handle, server.Url("/", "https").c_str()), 0u);
  EXPECT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(handle), sent);
  AMUint got = 0;
  EXPECT_EQ(PalvonAuthManager_GetResponseStatusCode(handle, &got), sent == 0 ? 0u : 0x8004u);
  EXPECT_EQ(got, status);
  got = 12345;
  EXPECT_EQ(PalvonAuthManager_GetResponseTrustFailureFlags(handle, &got), 0u);
  EXPECT_EQ(got, flags) << daemon.LogText();
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

const char kLoopbackNames[] = "IP:127.0.0.1,DNS:localhost";

}  // namespace

TEST(Tls, TrustFailuresAreFlaggedUnlessInsecure) {
  const struct {
    const char* name;
    const char* altNames;
    long validFrom;
    long validUntil;
    const char* mode;  // "ca": the certificate is the configured CA
    AMResult sent;
    AMUint status;
    AMUint flags;
  } cases[] = {
      {"good", kLoopbackNames, -3600, 3600, "ca", 0, 200, 0x00},
      {"self", kLoopbackNames, -3600, 3600, "", kTlsFailure, 0, 0x01},           // untrusted root
      {"other", "DNS:elsewhere.test", -3600, 3600, "ca", kTlsFailure, 0, 0x04},  // host mismatch
      {"old", kLoopbackNames, -7200, -3600, "ca", kTlsFailure, 0, 0x02},         // expired
      // Nothing checked at all.
      {"any", "DNS:elsewhere.test", -7200, -3600, "--insecure", 0, 200, 0x80},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto files = MakeCertificate(c.name, c.altNames, c.validFrom, c.validUntil);
    std::vector<std::string> args;
    if (std::string(c.mode) == "ca") {
      args = {"--config", pam_test::WriteFile(Home() + "/" + c.name + ".toml",
                                              "[http]\nca_file = \"" + files.certificate + "\"\n")};
    } else if (*c.mode != '\0') {
      args = {c.mode};
    }
    ExpectFetch(files, args, c.sent, c.status, c.flags);
  }
}
