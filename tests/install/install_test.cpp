// Installs the build into a fresh prefix, builds a separate application
// against it with find_package and with pkg-config, and runs it, and the
// installed tool, against the installed service.
#include <gtest/gtest.h>

#include "install/PkgConfigConsumer.h"
#include "support/ChildProcess.h"
#include "support/ServiceHarness.h"
#include "support/TempHome.h"

using namespace pam_test;

TEST(InstalledSdk, ConsumersBuildAgainstTheInstallationAndTalkToItsService) {
  const std::string prefix = Home() + "/prefix", lib = prefix + "/" PAM_INSTALL_LIBDIR, build = Home() + "/build";
  Step({PAM_CMAKE_COMMAND, "--install", PAM_BUILD_DIR, "--prefix", prefix}, {"DESTDIR="});
  const std::string files =
      RunChild({"/bin/sh", "-c", "find " + prefix + " -mindepth 1 -printf '%P (%y)\\n' | LC_ALL=C sort"}).out;
  ExpectGolden("install/installed.txt", Mask(files, {{R"(Targets-\w+\.cmake)", "Targets-BUILDTYPE.cmake"}}));
  EXPECT_NE(ReadFile(prefix + "/lib/systemd/user/palvonauthd.service").find("ExecStart=" + prefix + "/bin/palvonauthd"),
            std::string::npos);
  // find_package, found through the prefix only.
  const std::string flags = PAM_CONSUMER_FLAGS;
  Step({PAM_CMAKE_COMMAND, "-S", PAM_CONSUMER_SOURCE_DIR, "-B", build, "-G", PAM_GENERATOR,
        "-DCMAKE_MAKE_PROGRAM=" PAM_MAKE_PROGRAM, "-DCMAKE_C_COMPILER=" PAM_C_COMPILER,
        "-DCMAKE_CXX_COMPILER=" PAM_CXX_COMPILER, "-DCMAKE_PREFIX_PATH=" + prefix,
        "-DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF", "-DCMAKE_C_FLAGS=" + flags, "-DCMAKE_CXX_FLAGS=" + flags,
        "-DCMAKE_EXE_LINKER_FLAGS=" + flags});
  EXPECT_NE(ReadFile(build + "/CMakeCache.txt").find("PalvonAuthManager_DIR:PATH=" + lib + "/cmake/PalvonAuthManager"),
            std::string::npos);
  Step({PAM_CMAKE_COMMAND, "--build", build});
  // pkg-config: a plain compiler call with the flags it gives.
  BuildWithPkgConfig(lib + "/pkgconfig", Home() + "/pc", flags);

  Daemon daemon({"--version-text", "installed"}, "", prefix + "/bin/palvonauthd");
  for (const std::string& program : {build + "/consumer", Home() + "/pc", build + "/trace_consumer"}) {
    const ChildResult run = RunChild({program});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, program.find("trace") != std::string::npos ? "api-level 2, trace files 1\n"
                                                                  : "api-level 2\nversion installed\ninitialised no\n");
  }
  // The installed tool finds the installed library through its run path, and names it.
  const ChildResult tool = RunChild({prefix + "/bin/palvonauth", "--json", "version"}, {{"LD_LIBRARY_PATH="}});
  EXPECT_EQ(tool.out, "{\"version\":\"installed\"}\n") << tool.err;
  EXPECT_EQ(RunChild({prefix + "/bin/palvonauth", "--version"}, {{"LD_LIBRARY_PATH="}}).out,
            "palvonauth " PAM_PROJECT_VERSION "\nlibpalvonauthmanager " PAM_PROJECT_VERSION " (" + lib +
                "/libpalvonauthmanager.so." PAM_PROJECT_VERSION ")\n");
}
