// Pieces of palvonauthd in-process, where the transcripts of whole runs see
// too little: text conversions, operation names, configuration layering,
// request framing at its limits.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <tuple>

#include "common/ServerPipes.h"
#include "daemon/Config.h"
#include "daemon/Http.h"
#include "daemon/OperationNames.h"
#include "daemon/TextFormat.h"
#include "support/TempHome.h"
#include "util/Utf8.h"

using namespace palvonauthd;

TEST(ServiceUnit, TextsNamesAndConfiguration) {
  const std::wstring wide = L"a\u00fc\u20ac\U0001F600";
  EXPECT_EQ(PalvonAuthManagerSDK::ToUtf8(wide), "a\xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80");
  EXPECT_EQ(PalvonAuthManagerSDK::FromUtf8OrLatin1(PalvonAuthManagerSDK::ToUtf8(wide)), wide);
  // Stray bytes are Latin-1: a lone continuation byte, a truncated sequence, an overlong form.
  EXPECT_EQ(PalvonAuthManagerSDK::FromUtf8OrLatin1("x\x80y\xe2\x82\xc0\xaf"), L"x\u0080y\u00e2\u0082\u00c0\u00af");
  EXPECT_EQ(PalvonAuthManagerSDK::ToUtf8(std::wstring{static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000)}),
            "\xef\xbf\xbd\xef\xbf\xbd");
  EXPECT_EQ(UrlEncode("AZaz09-._~ /?=&%\x7f\xc3\xbc"), "AZaz09-._~%20%2F%3F%3D%26%25%7F%C3%BC");
  EXPECT_EQ(ExpandTemplate("{a}-{{b}}-{a}{c}{zz}", {{"a", "1"}, {"c", "3"}}), "1-{b}-13");
  EXPECT_EQ(WithoutTrailingSlash("/"), "/");
  EXPECT_EQ(ParseNumber("4294967295"), 4294967295u);
  for (const char* bad : {"Nope", "12x", "4294967296", "", "-1", "0x", " 59", "+59"})
    EXPECT_FALSE(ParseOperation(bad) || ParseNumber(bad)) << bad;
  EXPECT_EQ(OperationName(7), "Unknown7");
  for (const uint32_t type : KnownOperations()) EXPECT_EQ(ParseOperation(OperationName(type)), type);
  EXPECT_EQ(KnownOperations().size(), 37u);
  HttpSettings settings;
  EXPECT_EQ(UserAgentFor(settings, "App/2"), "App/2");
  EXPECT_TRUE(CheckHeaderLine("X\x7f: b"));
  EXPECT_TRUE(CheckMethod("G\x7f"));
  // A configuration file replaces what it names, rule lists whole, or nothing when it fails.
  Config config = DefaultConfig();
  const Config defaults = config;
  ApplyConfigText(config, "[servers]\n[[servers.rule]]\nprefix = \"https://b/\"\n[faults]\noperations = [63]\n", "t");
  ASSERT_EQ(config.serverRules.size(), 1u);
  EXPECT_EQ(config.serverRules[0].prefix, "https://b/");
  EXPECT_EQ(config.serverRules[0].serverType, 1u);
  EXPECT_EQ(config.trampolineTemplate, defaults.trampolineTemplate);
  EXPECT_TRUE(config.FaultApplies(63));
  EXPECT_FALSE(config.FaultApplies(59));
  EXPECT_TRUE(defaults.FaultApplies(59));
  EXPECT_THROW(ApplyConfigText(config, "[service]\nsdk_version = 9\nbogus = 1\n", "t"), ConfigError);
  EXPECT_EQ(config.sdkVersion, defaults.sdkVersion);
  EXPECT_EQ(ExpandHome("/~/x"), "/~/x");
  EXPECT_NE(pam_test::ReadFile(std::string(PAM_SOURCE_DIR) + "/docs/service.md")
                .find(std::string("```toml\n") + DefaultConfigText() + "```"),
            std::string::npos)
      << "docs/service.md must show the embedded default configuration as it is";
}

TEST(ServiceUnit, FramesAreReadOneAtATimeAndOversizedOnesNotAtAll) {
  using pam_service::ReadStatus;
  constexpr uint32_t kCap = pam_service::kMaxRequestBodyLength;
  // Body length in the prefix, bytes written after it; what is read, and the bytes left in the pipe.
  const std::tuple<uint32_t, size_t, ReadStatus, int> cases[] = {
      {0, 5, ReadStatus::kFrame, 5},          {100, 107, ReadStatus::kFrame, 7},
      {100, 40, ReadStatus::kNeedMore, 0},    {kCap, kCap + 3, ReadStatus::kFrame, 3},
      {kCap + 1, 20, ReadStatus::kError, 20}, {0xFFFFFFFFu, 20, ReadStatus::kError, 20}};
  for (const auto& [declared, sent, expected, left] : cases) {
    SCOPED_TRACE(declared);
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_NONBLOCK | O_CLOEXEC), 0);
    std::vector<uint8_t> stream = {59, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0};
    *reinterpret_cast<uint32_t*>(&stream[8]) = declared;
    stream.resize(12 + sent, 0xAB);
    pam_service::FrameReader reader;
    std::vector<uint8_t> raw;
    PalvonAuthManagerSDK::LinuxDictionary decoded;
    ReadStatus status = ReadStatus::kNeedMore;
    int queued = 0;
    // Feeds the pipe while reading, until a result or until everything written is taken.
    for (size_t done = 0; status == ReadStatus::kNeedMore && !(done == stream.size() && queued == 0);) {
      const ssize_t n = write(fds[1], stream.data() + done, std::min<size_t>(stream.size() - done, 65536));
      done += n > 0 ? static_cast<size_t>(n) : 0;
      status = reader.Read(fds[0], raw, decoded);
      ASSERT_EQ(ioctl(fds[0], FIONREAD, &queued), 0);
    }
    EXPECT_EQ(status, expected);
    EXPECT_EQ(queued, left);
    EXPECT_EQ(raw.size(), status == ReadStatus::kFrame ? 12 + declared : 0u);
    EXPECT_EQ(decoded.Header().messageType, status == ReadStatus::kFrame ? 59u : 0xFFFFFFFFu);
    EXPECT_EQ(reader.InFrame(), status != ReadStatus::kFrame);
    EXPECT_EQ(reader.RefusedLength(), status == ReadStatus::kError ? declared : 0u);
    close(fds[0]);
    close(fds[1]);
  }
}

TEST(ServiceUnit, RegistrationRecordsAreFoundAmongJunkAndAcrossReads) {
  const std::string dir = std::string(std::getenv("HOME")) + "/pipes";
  ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);
  pam_service::RegistrationPipe pipe(dir);
  ASSERT_TRUE(pipe.Open());
  const int fd = open(pipe.Path().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  const std::string record = "ffffffff070000000c000000";  // process 7
  // Hex bytes written before each read; the process ids read and the bytes skipped.
  const std::pair<std::string, std::string> steps[] = {
      {record, "7 /0"},
      {"aabbcc" + record + record, "7 7 /3"},
      {"ffffffff070000000d", "/9"},  // a tail that can no longer be a record
      {"ffffff", "/0"},              // one that still can
      {"ff070000000c000000" + record.substr(0, 22), "7 /0"},
      {"00" + record.substr(0, 16) + "0c0000ff", "7 /11"},  // the last ff may start one
      {"ffffffff070000000d000000" + record, "7 /13"},
  };
  for (const auto& [hex, expected] : steps) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < hex.size(); i += 2)
      bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), 0, 16)));
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    size_t discarded = 0;
    std::string actual;
    for (const pam_service::RegistrationRecord& r : pipe.ReadValidRecords(discarded))
      actual += std::to_string(r.processId) + " ";
    EXPECT_EQ(actual + "/" + std::to_string(discarded), expected) << hex;
  }
  close(fd);
}
