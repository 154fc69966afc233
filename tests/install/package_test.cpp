// Builds the Debian packages from a Release tree of the project (the `deb`
// preset, kept inside this build folder so that later runs only rebuild what
// changed), compares what each package carries with packages.txt, unpacks
// them into a scratch root, and runs the C consumer built there with
// pkg-config, and the packaged tool, against the packaged service. Where
// lintian is installed, no package may draw an error or a warning from it.
#include <gtest/gtest.h>

#include "install/PkgConfigConsumer.h"
#include "support/ChildProcess.h"
#include "support/ServiceHarness.h"
#include "support/TempHome.h"

using namespace pam_test;

namespace {

// The standard output of a shell command that must succeed.
std::string Shell(const std::string& command) {
  const ChildResult run = RunChild({"/bin/sh", "-c", command}, {{}, 300s});
  EXPECT_EQ(run.exitCode, 0) << command << "\n" << run.out << run.err;
  return run.out;
}

}  // namespace

TEST(DebianPackages, CarryTheirShareAndWorkUnpacked) {
  const std::string tree = PAM_PACKAGE_TREE, debs = Home() + "/debs", root = Home() + "/root";
  Step({PAM_CMAKE_COMMAND, "-S", PAM_SOURCE_DIR, "--preset", "deb", "-B", tree});
  Step({PAM_CMAKE_COMMAND, "--build", tree, "--parallel", "2", "--target", "pam_installed_files"}, {}, 600s);
  Step({PAM_CPACK_COMMAND, "--config", tree + "/CPackConfig.cmake", "-B", debs}, {}, 300s);

  // Per package: the fields that decide where it goes, its control files
  // (no maintainer scripts), its files with their modes and owners (of the
  // API reference only the start page).
  const std::string listing = Shell("cd " + debs + R"sh( && for deb in *.deb; do
      dpkg-deb --show --showformat='== ${Package} (${Section}, ${Architecture})\nDepends: ${Depends}\n' $deb
      echo control: $(dpkg-deb --ctrl-tarfile $deb | tar -t | grep -v /$ | sort)
      dpkg-deb --contents $deb | awk '{ printf "%s %s", $1, $2; for (i = 6; i <= NF; ++i) printf " %s", $i; print "" }'
    done)sh");
  ExpectGolden("install/packages.txt", Mask(listing, {{PAM_MULTIARCH, "MULTIARCH"},
                                                      {R"(, \w+\)\n)", ", ARCH)\n"},
                                                      {R"(\(>= [^)]+\))", "(>= V)"},
                                                      {R"(\n[^\n]*/html/(?!index\.html\n)[^\n]+)", ""}}));

  Shell("for deb in " + debs + "/*.deb; do dpkg-deb --extract $deb " + root + "; done");
  EXPECT_NE(ReadFile(root + "/usr/lib/systemd/user/palvonauthd.service").find("ExecStart=/usr/bin/palvonauthd\n"),
            std::string::npos);
  BuildWithPkgConfig(root + "/usr/lib/" PAM_MULTIARCH "/pkgconfig", Home() + "/pc", "");
  Daemon daemon({"--version-text", "packaged"}, "", root + "/usr/bin/palvonauthd");
  const ChildResult consumer = RunChild({Home() + "/pc"});
  EXPECT_EQ(consumer.out, "api-level 2\nversion packaged\ninitialised no\n") << consumer.err;
  // The packaged tool finds the packaged library through its run path.
  const ChildResult tool = RunChild({root + "/usr/bin/palvonauth", "--json", "version"}, {{"LD_LIBRARY_PATH="}});
  EXPECT_EQ(tool.out, "{\"version\":\"packaged\"}\n") << tool.err;

  if (RunChild({"/bin/sh", "-c", "command -v lintian"}).exitCode == 0) {
    const ChildResult lintian = RunChild({"/bin/sh", "-c", "lintian --display-info " + debs + "/*.deb"}, {{}, 300s});
    EXPECT_FALSE(std::regex_search(lintian.out, std::regex(R"((^|\n)[EW]: )"))) << lintian.out << lintian.err;
  }
}
