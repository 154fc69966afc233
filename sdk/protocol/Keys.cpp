#include "protocol/Keys.h"

namespace PalvonAuthManagerSDK {
namespace key {

std::wstring Indexed(const wchar_t* prefix, uint32_t index) { return prefix + std::to_wstring(index); }

}  // namespace key
}  // namespace PalvonAuthManagerSDK
