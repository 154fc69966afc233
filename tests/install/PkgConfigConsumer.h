#ifndef PAM_TESTS_INSTALL_PKGCONFIGCONSUMER_H
#define PAM_TESTS_INSTALL_PKGCONFIGCONSUMER_H

// consumer/main.c built by a plain compiler call with the flags pkg-config
// gives for an installed palvonauthmanager.pc.

#include "support/ServiceHarness.h"

namespace pam_test {

/** Builds `program` against the .pc file in `pcdir`, the library's folder as run path, `flags` added. */
inline void BuildWithPkgConfig(const std::string& pcdir, const std::string& program, const std::string& flags) {
  const std::vector<std::string> pc = {"PKG_CONFIG_PATH=" + pcdir};
  EXPECT_EQ(Step({PAM_PKG_CONFIG, "--modversion", "palvonauthmanager"}, pc),
            std::vector<std::string>{PAM_PROJECT_VERSION});
  std::vector<std::string> compile = Step({PAM_PKG_CONFIG, "--cflags", "--libs", "palvonauthmanager"}, pc);
  compile.insert(compile.begin(),
                 {PAM_C_COMPILER, "-std=c11", "-o", program, PAM_CONSUMER_SOURCE_DIR "/main.c",
                  "-Wl,-rpath," + Step({PAM_PKG_CONFIG, "--variable=libdir", "palvonauthmanager"}, pc).at(0)});
  for (const auto& word : Step({"/bin/echo", flags})) compile.push_back(word);
  Step(compile);
}

}  // namespace pam_test

#endif
