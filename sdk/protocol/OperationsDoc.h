#ifndef PALVON_SDK_PROTOCOL_OPERATIONSDOC_H
#define PALVON_SDK_PROTOCOL_OPERATIONSDOC_H

#include <string>

namespace PalvonAuthManagerSDK {
namespace protocol {

/**
 * The message tables of docs/protocol.md, written from the operations table:
 * one Markdown table per API level, a row per operation with its request
 * and reply keys.
 */
std::string OperationsMarkdown();

}  // namespace protocol
}  // namespace PalvonAuthManagerSDK

#endif
