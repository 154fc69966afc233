# Debian packages the project builds with (sourced by the other scripts).
# shellcheck disable=SC2034
BUILD_PACKAGES=(cmake ninja-build g++ pkg-config libboost-dev libcurl4-openssl-dev libssl-dev libtomlplusplus-dev libcli11-dev libcpp-httplib-dev libutfcpp-dev libsystemd-dev dpkg-dev file)
TEST_PACKAGES=(doxygen lintian googletest libgtest-dev libgmock-dev libbenchmark-dev clang libclang-rt-14-dev binutils curl python3)
# What the demo runs besides the SDK.
DEMO_PACKAGES=(curl)
