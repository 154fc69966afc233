// Pieces of palvonauthd tested in-process: configuration layering, text
// templates and encodings, operation names, registration resynchronisation,
// request framing.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "common/ServerPipes.h"
#include "daemon/Config.h"
#include "daemon/Http.h"
#include "daemon/Launcher.h"
#include "daemon/Operations.h"
#include "daemon/Text.h"
#include "ipc/CLinuxIPC.h"

using namespace palvonauthd;

TEST(ServiceText, Utf8ConversionKeepsEveryPlaneAndReadsStrayBytesAsLatin1) {
  const std::wstring wide = L"a\u00fc\u20ac\U0001F600";
  EXPECT_EQ(ToUtf8(wide), "a\xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80");
  EXPECT_EQ(FromUtf8(ToUtf8(wide)), wide);
  // A lone continuation byte, a truncated sequence and an overlong form.
  EXPECT_EQ(FromUtf8("x\x80y"), L"x\u0080y");
  EXPECT_EQ(FromUtf8("\xe2\x82"), L"\u00e2\u0082");
  EXPECT_EQ(FromUtf8("\xc0\xaf"), L"\u00c0\u00af");
  EXPECT_EQ(ToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xef\xbf\xbd");
}

TEST(ServiceText, UrlEncodingKeepsOnlyUnreservedCharacters) {
  EXPECT_EQ(UrlEncode("AZaz09-._~"), "AZaz09-._~");
  EXPECT_EQ(UrlEncode("a b/c?d=e&f%\xc3\xbc"), "a%20b%2Fc%3Fd%3De%26f%25%C3%BC");
  EXPECT_EQ(UrlEncode(""), "");
}

TEST(ServiceText, TemplatesExpandKnownNamesAndEscapedBraces) {
  EXPECT_EQ(ExpandTemplate("{a}-{{b}}-{a}{c}", {{"a", "1"}, {"c", "3"}}), "1-{b}-13");
  EXPECT_EQ(ExpandTemplate("plain", {}), "plain");
  EXPECT_FALSE(CheckTemplate("{gateway}/x?{url}{{}}", kTrampolinePlaceholders));
  EXPECT_EQ(CheckTemplate("{gatway}", kTrampolinePlaceholders).value_or("").rfind("unknown placeholder {gatway}", 0),
            0u);
  EXPECT_EQ(CheckTemplate("abc{url", kTrampolinePlaceholders).value_or(""), "unclosed '{' at offset 3");
  EXPECT_EQ(CheckTemplate("a}b", kTrampolinePlaceholders).value_or("").rfind("unmatched '}' at offset 1", 0), 0u);
}

TEST(ServiceOperations, NamesAndNumbers) {
  EXPECT_EQ(ParseOperation("GetVersion"), 59u);
  EXPECT_EQ(ParseOperation("getversion"), 59u);
  EXPECT_EQ(ParseOperation("0x3F"), 63u);
  EXPECT_EQ(ParseOperation("085"), 85u);
  EXPECT_FALSE(ParseOperation("Nope"));
  EXPECT_FALSE(ParseOperation("12x"));
  EXPECT_FALSE(ParseNumber("4294967296"));
  EXPECT_EQ(ParseNumber("4294967295"), 4294967295u);
  EXPECT_EQ(OperationName(286), "ReadResponseBodyStream");
  EXPECT_EQ(OperationName(7), "Unknown7");
  for (const uint32_t type : KnownOperations()) EXPECT_EQ(ParseOperation(OperationName(type)), type);
}

TEST(ServiceConfig, FileOverridesOnlyTheKeysItHasAndReplacesRuleLists) {
  Config config = DefaultConfig();
  ASSERT_EQ(config.serverRules.size(), 1u);
  const std::string defaultTemplate = config.trampolineTemplate;
  ApplyConfigText(config, R"(
[service]
sdk_version = 1
[[servers.rule]]
prefix = "https://a/"
[[servers.rule]]
prefix = "https://b/"
type = 3
[faults]
operations = ["GetVersion", 63]
answers = { "0x55" = 4, LogOff = 65530 }
)",
                  "test.toml");
  EXPECT_EQ(config.sdkVersion, 1u);
  EXPECT_EQ(config.trampolineTemplate, defaultTemplate);
  ASSERT_EQ(config.serverRules.size(), 2u);
  EXPECT_EQ(config.serverRules[0].serverType, 1u);
  EXPECT_EQ(config.serverRules[1].serverType, 3u);
  EXPECT_EQ(config.faultOperations, (std::set<uint32_t>{59, 63}));
  EXPECT_TRUE(config.FaultApplies(63));
  EXPECT_FALSE(config.FaultApplies(5));
  EXPECT_EQ(config.forcedAnswers, (std::map<uint32_t, uint32_t>{{85, 4}, {15, 65530}}));

  // A failed file leaves the configuration as it was.
  const Config before = config;
  EXPECT_THROW(ApplyConfigText(config, "[service]\nsdk_version = 9\nbogus = 1\n", "t.toml"), ConfigError);
  EXPECT_EQ(config.sdkVersion, before.sdkVersion);
}

TEST(ServiceConfig, ErrorsNameSourceLineAndColumn) {
  Config config = DefaultConfig();
  try {
    ApplyConfigText(config, "[launch]\ncommand = [\"a\", 3]\n", "cfg.toml");
    FAIL() << "accepted";
  } catch (const ConfigError& error) {
    EXPECT_STREQ(error.what(), "cfg.toml:2:17: 'launch.command' must be an array of strings, not an integer");
  }
  try {
    ApplyConfigText(config, "[http]\nmax_response_bytes = 0\n", "cfg.toml");
    FAIL() << "accepted";
  } catch (const ConfigError& error) {
    EXPECT_STREQ(error.what(), "cfg.toml:2:22: 'http.max_response_bytes' must be at least 1, not 0");
  }
}

TEST(ServiceHttp, RequestSettingsAreChecked) {
  HttpSettings settings;
  settings.userAgent = "svc/1";
  EXPECT_EQ(UserAgentFor(settings, ""), "svc/1");
  EXPECT_EQ(UserAgentFor(settings, "App/2"), "svc/1 App/2");
  EXPECT_EQ(UserAgentFor(settings, " App/2"), "svc/1 App/2");
  EXPECT_FALSE(CheckHeaderLine("X-A: b c"));
  EXPECT_FALSE(CheckHeaderLine("X-Empty:"));
  EXPECT_TRUE(CheckHeaderLine(": b"));
  EXPECT_TRUE(CheckHeaderLine("X A: b"));
  EXPECT_TRUE(CheckHeaderLine("X-A: b\nX-B: c"));
  EXPECT_FALSE(CheckMethod("PROPFIND"));
  EXPECT_TRUE(CheckMethod(""));
  EXPECT_TRUE(CheckMethod("GET /"));
}

TEST(ServiceLauncher, ArgumentsAreCommandThenUrlThenClientArguments) {
  Launcher launcher({"engine", "--x"}, "/dev/null");
  LaunchRequest request;
  request.url = "u";
  request.args = {"a", "b c"};
  EXPECT_EQ(launcher.ArgumentsFor(request), (std::vector<std::string>{"engine", "--x", "u", "a", "b c"}));
  request.url.reset();
  EXPECT_EQ(launcher.ArgumentsFor(request), (std::vector<std::string>{"engine", "--x", "a", "b c"}));
  EXPECT_EQ(Quote("a\"b\\c\n\x01"), "\"a\\\"b\\\\c\\n\\x01\"");
}

TEST(ServiceRegistration, JunkIsSkippedWithoutLosingTheRecordsAround) {
  pam_service::RegistrationPipe pipe(PalvonAuthManagerSDK::CLinuxIPC::getUserTmpDir());
  ASSERT_TRUE(pipe.Open());
  const int writer = open(pipe.Path().c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(writer, 0);
  const auto record = [](uint32_t pid) {
    std::vector<uint8_t> bytes(12);
    const uint32_t fields[3] = {0xFFFFFFFFu, pid, 12};
    std::memcpy(bytes.data(), fields, sizeof fields);
    return bytes;
  };
  std::vector<uint8_t> stream = record(100);
  stream.insert(stream.end(), {1, 2, 3, 0xFF, 0xFF});
  const auto second = record(200);
  stream.insert(stream.end(), second.begin(), second.end());
  const uint32_t wrongLength[3] = {0xFFFFFFFFu, 300, 13};
  stream.insert(stream.end(), reinterpret_cast<const uint8_t*>(wrongLength),
                reinterpret_cast<const uint8_t*>(wrongLength) + 12);
  // A tail that may still become a record stays buffered.
  stream.insert(stream.end(), {0xFF, 0xFF, 0xFF});
  ASSERT_EQ(write(writer, stream.data(), stream.size()), static_cast<ssize_t>(stream.size()));
  size_t discarded = 0;
  auto records = pipe.ReadValidRecords(discarded);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].processId, 100u);
  EXPECT_EQ(records[1].processId, 200u);
  EXPECT_EQ(discarded, 5u + 12u);

  // The buffered 0xFF 0xFF 0xFF was not a record start after all: junk,
  // skipped, and the next record is still found.
  const auto third = record(400);
  ASSERT_EQ(write(writer, "\x00", 1), 1);
  ASSERT_EQ(write(writer, third.data(), third.size()), 12);
  records = pipe.ReadValidRecords(discarded);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].processId, 400u);
  EXPECT_EQ(discarded, 4u);
  close(writer);
}

TEST(ServiceDocs, ShowTheEmbeddedDefaultConfiguration) {
  std::ifstream in(std::string(PAM_SOURCE_DIR) + "/docs/service.md");
  std::ostringstream text;
  text << in.rdbuf();
  EXPECT_NE(text.str().find(std::string("```toml\n") + DefaultConfigText() + "```"), std::string::npos)
      << "docs/service.md must show the embedded default configuration as it is";
}

TEST(ServiceFraming, ReadsOneFrameAtATimeAndNeverTheBodyOfAnOversizedOne) {
  using pam_service::ReadStatus;
  constexpr uint32_t kCap = pam_service::kMaxRequestBodyLength;
  struct Case {
    uint32_t declared;  // body length in the prefix
    size_t sent;        // bytes written after the prefix
    ReadStatus status;
    size_t left;  // bytes still in the pipe afterwards
  };
  const Case cases[] = {
      {0, 5, ReadStatus::kFrame, 5},          {100, 107, ReadStatus::kFrame, 7},
      {100, 40, ReadStatus::kNeedMore, 0},    {kCap, kCap + 3, ReadStatus::kFrame, 3},
      {kCap + 1, 20, ReadStatus::kError, 20}, {0xFFFFFFFFu, 20, ReadStatus::kError, 20},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.declared);
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_NONBLOCK | O_CLOEXEC), 0);
    std::vector<uint8_t> stream = {59, 0, 0, 0, 1, 0, 0, 0};
    stream.resize(12 + c.sent, 0xAB);
    std::memcpy(stream.data() + 8, &c.declared, 4);
    std::atomic<bool> written{false};
    std::thread writer([&] {
      for (size_t done = 0; done < stream.size();) {
        const ssize_t n = write(fds[1], stream.data() + done, std::min<size_t>(stream.size() - done, 65536));
        if (n > 0) done += static_cast<size_t>(n);
        if (n < 0) usleep(100);
      }
      written = true;
    });
    pam_service::FrameReader reader;
    std::vector<uint8_t> raw;
    PalvonAuthManagerSDK::LinuxDictionary decoded;
    ReadStatus status = ReadStatus::kNeedMore;
    int queued = 0;
    // Reads until a result other than "need more", or until everything
    // written has been taken.
    while ((status = reader.Read(fds[0], raw, decoded)) == ReadStatus::kNeedMore &&
           !(written && ioctl(fds[0], FIONREAD, &queued) == 0 && queued == 0)) {
    }
    writer.join();
    EXPECT_EQ(status, c.status);
    ASSERT_EQ(ioctl(fds[0], FIONREAD, &queued), 0);
    EXPECT_EQ(static_cast<size_t>(queued), c.left);
    if (status == ReadStatus::kFrame) {
      EXPECT_EQ(raw.size(), 12 + c.declared);
      EXPECT_EQ(decoded.Header().messageType, 59u);
    }
    EXPECT_EQ(reader.InFrame(), status != ReadStatus::kFrame);
    EXPECT_EQ(reader.RefusedLength(), status == ReadStatus::kError ? c.declared : 0u);
    close(fds[0]);
    close(fds[1]);
  }
}
