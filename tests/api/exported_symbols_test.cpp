// The shared library's dynamic symbol table: exactly the public interface is
// exported, under the version node of the version script, and the library
// carries its SONAME. The tables are read with the toolchain's objdump.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr const char* kVersionNode = "PALVONAUTHMANAGER_1.0";

struct DefinedSymbol {
  char binding = 'l';  // 'g' global, 'w' weak, 'u' unique
  char type = ' ';     // 'F' function, 'O' object
  std::string version;
};

struct DynamicTable {
  std::string error;
  std::string soname;
  std::map<std::string, DefinedSymbol> defined;
  std::set<std::string> versionNodes;
};

std::vector<std::string> OutputLines(const std::string& command) {
  std::vector<std::string> lines;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[4096];
    while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) {
      std::string line = buffer;
      if (!line.empty() && line.back() == '\n') line.pop_back();
      lines.push_back(line);
    }
    pclose(pipe);
  }
  return lines;
}

// The defined dynamic symbols (objdump -T), the SONAME and the version nodes (objdump -p).
DynamicTable ReadDynamicTable(const std::string& path) {
  DynamicTable table;
  // address, seven flag characters (binding first, type last), section, size, version, name
  const std::regex symbol(R"(^[0-9a-f]+ (.).....(.) (\S+)\s+[0-9a-f]+\s+(\S+)\s+(\S+)$)");
  for (const std::string& line : OutputLines(std::string(PAM_OBJDUMP) + " -T '" + path + "'")) {
    std::smatch m;
    if (!std::regex_match(line, m, symbol) || m[3] == "*UND*" || m[1] == "l") continue;
    // The version node itself appears as an absolute symbol of its own name.
    if (m[3] == "*ABS*" && m[4] == m[5]) continue;
    table.defined[m[5]] = DefinedSymbol{m[1].str()[0], m[2].str()[0], m[4]};
  }
  bool inVersions = false;
  const std::regex soname(R"(^\s+SONAME\s+(\S+)$)");
  const std::regex definition(R"(^\d+ 0x([0-9a-f]+) 0x[0-9a-f]+ (\S+)$)");
  for (const std::string& line : OutputLines(std::string(PAM_OBJDUMP) + " -p '" + path + "'")) {
    std::smatch m;
    if (std::regex_match(line, m, soname)) table.soname = m[1];
    if (line.rfind("Version", 0) == 0) inVersions = line == "Version definitions:";
    // The base definition (flag 0x01) names the file itself; the others are nodes.
    if (inVersions && std::regex_match(line, m, definition) && (std::stoul(m[1], nullptr, 16) & 1) == 0) {
      table.versionNodes.insert(m[2]);
    }
  }
  if (table.defined.empty()) table.error = "no dynamic symbols read from " + path;
  return table;
}

const std::vector<std::string>& ExpectedFunctions() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all = {"IsInitialised"};
    // Every other function carries the "PalvonAuthManager_" prefix.
    for (const char* name :
         {// Lifecycle.
          "Initialize", "Uninitialize", "GetApiLevel",
          // API level 1.
          "CreateConnection", "DestroyConnection", "ClearAllCredentials", "CancelAllCalls", "LogOff",
          "CreateVpnAuthContext", "DestroyVpnAuthContext", "GetVpnAuthorizationInfo", "FreeVpnAuthorizationInfo",
          "GenerateTrampolineUrl", "FreeString", "GetVersion", "SetClientWindow", "DetermineServerType",
          "FreeServerInfo", "RetrieveGatewayDiscoveryData", "LogOffGateway", "LogOffAuthService", "GetLogonStatus",
          // API level 2.
          "CreateAMHttpRequest", "SetRequestMethod", "SetRequestUrl", "SetRequestReferenceUrl",
          "SetRequestAuthenticationFlags", "SetRequestTimeoutSeconds", "SetRequestUserAgentSuffix", "SetRequestRoute",
          "AddRequestHeader", "SetRequestData", "SendRequestAndReceiveResponse", "GetResponseStatusCode",
          "GetResponseReasonPhrase", "GetResponseHeaders", "FreeResponseHeaders", "GetResponseServerCertificate",
          "GetResponseTrustFailureFlags", "GetServerCertificate", "FreeCertificate", "DuplicateCertificate",
          "ReadResponseBodyStream", "DestroyAMHttpRequest", "LaunchRZPFile",
          // Request contexts.
          "CreateRequestContext", "DestroyContext", "Prepare", "GetHeaders", "FreeHeaders", "GetTranslatedUrl",
          "FreeTranslatedUrl", "Prepare2", "ReportHttpResponse", "ReportHttpFailure", "ForceRoute",
          "SetReferenceUrl"}) {
      all.push_back(std::string("PalvonAuthManager_") + name);
    }
    return all;
  }();
  return names;
}

// CTracer::s_tracingEnabled and CTracer::s_tracefile.
const std::vector<std::string> kExpectedData = {"_ZN20PalvonAuthManagerSDK7CTracer16s_tracingEnabledE",
                                                "_ZN20PalvonAuthManagerSDK7CTracer11s_tracefileE"};

TEST(ExportedSymbols, ExactlyThePublicInterfaceUnderTheVersionNodeAndSoname) {
  const DynamicTable table = ReadDynamicTable(PAM_SHARED_LIBRARY);
  ASSERT_TRUE(table.error.empty()) << table.error;

  std::set<std::string> expected(ExpectedFunctions().begin(), ExpectedFunctions().end());
  expected.insert(kExpectedData.begin(), kExpectedData.end());
  ASSERT_EQ(expected.size(), 57u + 1u + 2u) << "the expected list itself has a duplicate";

  std::set<std::string> actual;
  for (const auto& [name, symbol] : table.defined) actual.insert(name);
  for (const std::string& name : expected) EXPECT_EQ(actual.count(name), 1u) << "not exported: " << name;
  for (const std::string& name : actual) EXPECT_EQ(expected.count(name), 1u) << "exported but not public: " << name;

  // Functions and data have their kind, and all carry the version node.
  EXPECT_EQ(table.soname, "libpalvonauthmanager.so.1") << "the SONAME carries the major version";
  EXPECT_EQ(table.versionNodes, std::set<std::string>{kVersionNode});
  for (const std::string& name : ExpectedFunctions()) {
    const auto found = table.defined.find(name);
    if (found == table.defined.end()) continue;  // reported above
    EXPECT_EQ(found->second.type, 'F') << name;
    EXPECT_EQ(found->second.binding, 'g') << name;
    EXPECT_EQ(found->second.version, kVersionNode) << name;
  }
  for (const std::string& name : kExpectedData) {
    const auto found = table.defined.find(name);
    ASSERT_NE(found, table.defined.end()) << name;
    EXPECT_EQ(found->second.type, 'O') << name;
    EXPECT_EQ(found->second.version, kVersionNode) << name;
  }
}

}  // namespace
