// The shared library's dynamic symbol table: exactly the public interface is
// exported, under the version node of the version script, and the library
// carries its SONAME. The ELF file is read directly.
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr const char* kVersionNode = "PALVONAUTHMANAGER_1.0";

struct DefinedSymbol {
  unsigned char type = STT_NOTYPE;
  unsigned char binding = STB_LOCAL;
  std::string version;
};

struct DynamicTable {
  std::string error;
  std::string soname;
  std::map<std::string, DefinedSymbol> defined;
  std::set<std::string> versionNodes;
};

template <typename T>
bool Load(const std::vector<uint8_t>& file, uint64_t offset, T& out) {
  if (offset > file.size() || file.size() - offset < sizeof(T)) return false;
  std::memcpy(&out, file.data() + offset, sizeof(T));
  return true;
}

std::string StringAt(const std::vector<uint8_t>& file, const Elf64_Shdr& table, uint64_t index) {
  if (index >= table.sh_size || table.sh_offset + table.sh_size > file.size()) return "";
  const char* begin = reinterpret_cast<const char*>(file.data() + table.sh_offset + index);
  return std::string(begin, strnlen(begin, static_cast<size_t>(table.sh_size - index)));
}

// Reads the defined dynamic symbols, their version names and the SONAME of a
// 64-bit little-endian ELF shared object.
DynamicTable ReadDynamicTable(const std::string& path) {
  DynamicTable table;
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  std::vector<uint8_t> file(in ? static_cast<size_t>(in.tellg()) : 0);
  in.seekg(0);
  in.read(reinterpret_cast<char*>(file.data()), static_cast<std::streamsize>(file.size()));
  Elf64_Ehdr header{};
  if (!Load(file, 0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
      header.e_ident[EI_CLASS] != ELFCLASS64) {
    table.error = "not a 64-bit ELF file: " + path;
    return table;
  }
  std::vector<Elf64_Shdr> sections(header.e_shnum);
  for (size_t i = 0; i < sections.size(); ++i) {
    if (!Load(file, header.e_shoff + i * header.e_shentsize, sections[i])) {
      table.error = "truncated section table";
      return table;
    }
  }
  const Elf64_Shdr* dynsym = nullptr;
  const Elf64_Shdr* versym = nullptr;
  const Elf64_Shdr* verdef = nullptr;
  const Elf64_Shdr* dynamic = nullptr;
  for (const Elf64_Shdr& section : sections) {
    if (section.sh_type == SHT_DYNSYM) dynsym = &section;
    if (section.sh_type == SHT_GNU_versym) versym = &section;
    if (section.sh_type == SHT_GNU_verdef) verdef = &section;
    if (section.sh_type == SHT_DYNAMIC) dynamic = &section;
  }
  if (dynsym == nullptr || dynamic == nullptr || dynsym->sh_link >= sections.size() ||
      dynamic->sh_link >= sections.size()) {
    table.error = "no dynamic symbol table";
    return table;
  }

  // Version definitions: index -> name.
  std::map<uint16_t, std::string> versionNames;
  if (verdef != nullptr && verdef->sh_link < sections.size()) {
    uint64_t at = verdef->sh_offset;
    for (uint64_t i = 0; i < verdef->sh_info; ++i) {
      Elf64_Verdef def{};
      Elf64_Verdaux aux{};
      if (!Load(file, at, def) || !Load(file, at + def.vd_aux, aux)) break;
      const std::string name = StringAt(file, sections[verdef->sh_link], aux.vda_name);
      versionNames[def.vd_ndx] = name;
      // The first definition names the file itself; the others are nodes.
      if ((def.vd_flags & VER_FLG_BASE) == 0) table.versionNodes.insert(name);
      if (def.vd_next == 0) break;
      at += def.vd_next;
    }
  }

  const Elf64_Shdr& names = sections[dynsym->sh_link];
  const uint64_t count = dynsym->sh_entsize != 0 ? dynsym->sh_size / dynsym->sh_entsize : 0;
  for (uint64_t i = 0; i < count; ++i) {
    Elf64_Sym symbol{};
    if (!Load(file, dynsym->sh_offset + i * dynsym->sh_entsize, symbol)) break;
    if (symbol.st_shndx == SHN_UNDEF) continue;
    const std::string name = StringAt(file, names, symbol.st_name);
    if (name.empty() || ELF64_ST_BIND(symbol.st_info) == STB_LOCAL) continue;
    DefinedSymbol defined;
    defined.type = ELF64_ST_TYPE(symbol.st_info);
    defined.binding = ELF64_ST_BIND(symbol.st_info);
    if (versym != nullptr) {
      Elf64_Half index = 0;
      if (Load(file, versym->sh_offset + i * sizeof(Elf64_Half), index)) {
        const auto found = versionNames.find(static_cast<uint16_t>(index & 0x7FFF));
        if (found != versionNames.end()) defined.version = found->second;
      }
    }
    // The version node itself appears as an absolute symbol of its own name.
    if (symbol.st_shndx == SHN_ABS && name == defined.version) continue;
    table.defined[name] = defined;
  }

  const uint64_t entries = dynamic->sh_entsize != 0 ? dynamic->sh_size / dynamic->sh_entsize : 0;
  for (uint64_t i = 0; i < entries; ++i) {
    Elf64_Dyn entry{};
    if (!Load(file, dynamic->sh_offset + i * dynamic->sh_entsize, entry) || entry.d_tag == DT_NULL) break;
    if (entry.d_tag == DT_SONAME) table.soname = StringAt(file, sections[dynamic->sh_link], entry.d_un.d_val);
  }
  return table;
}

const std::vector<std::string>& ExpectedFunctions() {
  static const std::vector<std::string> names = {
      // Lifecycle.
      "PalvonAuthManager_Initialize",
      "PalvonAuthManager_Uninitialize",
      "PalvonAuthManager_GetApiLevel",
      "IsInitialised",
      // API level 1.
      "PalvonAuthManager_CreateConnection",
      "PalvonAuthManager_DestroyConnection",
      "PalvonAuthManager_ClearAllCredentials",
      "PalvonAuthManager_CancelAllCalls",
      "PalvonAuthManager_LogOff",
      "PalvonAuthManager_CreateVpnAuthContext",
      "PalvonAuthManager_DestroyVpnAuthContext",
      "PalvonAuthManager_GetVpnAuthorizationInfo",
      "PalvonAuthManager_FreeVpnAuthorizationInfo",
      "PalvonAuthManager_GenerateTrampolineUrl",
      "PalvonAuthManager_FreeString",
      "PalvonAuthManager_GetVersion",
      "PalvonAuthManager_SetClientWindow",
      "PalvonAuthManager_DetermineServerType",
      "PalvonAuthManager_FreeServerInfo",
      "PalvonAuthManager_RetrieveGatewayDiscoveryData",
      "PalvonAuthManager_LogOffGateway",
      "PalvonAuthManager_LogOffAuthService",
      "PalvonAuthManager_GetLogonStatus",
      // API level 2.
      "PalvonAuthManager_CreateAMHttpRequest",
      "PalvonAuthManager_SetRequestMethod",
      "PalvonAuthManager_SetRequestUrl",
      "PalvonAuthManager_SetRequestReferenceUrl",
      "PalvonAuthManager_SetRequestAuthenticationFlags",
      "PalvonAuthManager_SetRequestTimeoutSeconds",
      "PalvonAuthManager_SetRequestUserAgentSuffix",
      "PalvonAuthManager_SetRequestRoute",
      "PalvonAuthManager_AddRequestHeader",
      "PalvonAuthManager_SetRequestData",
      "PalvonAuthManager_SendRequestAndReceiveResponse",
      "PalvonAuthManager_GetResponseStatusCode",
      "PalvonAuthManager_GetResponseReasonPhrase",
      "PalvonAuthManager_GetResponseHeaders",
      "PalvonAuthManager_FreeResponseHeaders",
      "PalvonAuthManager_GetResponseServerCertificate",
      "PalvonAuthManager_GetResponseTrustFailureFlags",
      "PalvonAuthManager_GetServerCertificate",
      "PalvonAuthManager_FreeCertificate",
      "PalvonAuthManager_DuplicateCertificate",
      "PalvonAuthManager_ReadResponseBodyStream",
      "PalvonAuthManager_DestroyAMHttpRequest",
      "PalvonAuthManager_LaunchRZPFile",
      // Request contexts.
      "PalvonAuthManager_CreateRequestContext",
      "PalvonAuthManager_DestroyContext",
      "PalvonAuthManager_Prepare",
      "PalvonAuthManager_GetHeaders",
      "PalvonAuthManager_FreeHeaders",
      "PalvonAuthManager_GetTranslatedUrl",
      "PalvonAuthManager_FreeTranslatedUrl",
      "PalvonAuthManager_Prepare2",
      "PalvonAuthManager_ReportHttpResponse",
      "PalvonAuthManager_ReportHttpFailure",
      "PalvonAuthManager_ForceRoute",
      "PalvonAuthManager_SetReferenceUrl",
  };
  return names;
}

// CTracer::s_tracingEnabled and CTracer::s_tracefile.
const std::vector<std::string> kExpectedData = {"_ZN20PalvonAuthManagerSDK7CTracer16s_tracingEnabledE",
                                                "_ZN20PalvonAuthManagerSDK7CTracer11s_tracefileE"};

TEST(ExportedSymbols, ExactlyThePublicInterface) {
  const DynamicTable table = ReadDynamicTable(PAM_SHARED_LIBRARY);
  ASSERT_TRUE(table.error.empty()) << table.error;

  std::set<std::string> expected(ExpectedFunctions().begin(), ExpectedFunctions().end());
  expected.insert(kExpectedData.begin(), kExpectedData.end());
  ASSERT_EQ(expected.size(), 57u + 1u + 2u) << "the expected list itself has a duplicate";

  std::set<std::string> actual;
  for (const auto& [name, symbol] : table.defined) actual.insert(name);
  for (const std::string& name : expected) EXPECT_EQ(actual.count(name), 1u) << "not exported: " << name;
  for (const std::string& name : actual) EXPECT_EQ(expected.count(name), 1u) << "exported but not public: " << name;
}

TEST(ExportedSymbols, FunctionsAndDataHaveTheirKindAndTheVersionNode) {
  const DynamicTable table = ReadDynamicTable(PAM_SHARED_LIBRARY);
  ASSERT_TRUE(table.error.empty()) << table.error;
  EXPECT_EQ(table.versionNodes, std::set<std::string>{kVersionNode});
  for (const std::string& name : ExpectedFunctions()) {
    const auto found = table.defined.find(name);
    if (found == table.defined.end()) continue;  // reported by the test above
    EXPECT_EQ(found->second.type, STT_FUNC) << name;
    EXPECT_EQ(found->second.binding, STB_GLOBAL) << name;
    EXPECT_EQ(found->second.version, kVersionNode) << name;
  }
  for (const std::string& name : kExpectedData) {
    const auto found = table.defined.find(name);
    ASSERT_NE(found, table.defined.end()) << name;
    EXPECT_EQ(found->second.type, STT_OBJECT) << name;
    EXPECT_EQ(found->second.version, kVersionNode) << name;
  }
}

TEST(ExportedSymbols, SonameCarriesTheMajorVersion) {
  const DynamicTable table = ReadDynamicTable(PAM_SHARED_LIBRARY);
  ASSERT_TRUE(table.error.empty()) << table.error;
  EXPECT_EQ(table.soname, "libpalvonauthmanager.so.1");
}

}  // namespace
