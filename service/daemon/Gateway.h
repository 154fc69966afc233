#ifndef PALVONAUTHD_GATEWAY_H
#define PALVONAUTHD_GATEWAY_H

#include <cstdint>
#include <string>

namespace palvonauthd {

/** A gateway as clients and the configuration describe it. */
struct Gateway {
  std::string friendlyName;
  std::string logonPointUrl;
  uint32_t edition = 0;
  uint32_t authType = 0;
};

}  // namespace palvonauthd

#endif
