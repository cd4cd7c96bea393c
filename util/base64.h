// SPDX-License-Identifier: MIT
// base64: bytes as text that goes through everything (RFC 4648).
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Padded with "=", on one line.
[[nodiscard]] std::string Base64(std::string_view bytes);
// Nothing when the text is not what Base64 writes for any bytes.
[[nodiscard]] std::optional<std::string> BytesOfBase64(std::string_view text);
