// SPDX-License-Identifier: MIT
// account_mask: the account that a masked service has in the registry; tvsc/mask.h says what that is for.
#pragma once

#include <string>
#include <string_view>

// What it begins with; the account that the service had stands behind another colon.
inline constexpr std::string_view accountMask = ":masked";

// Whether an account is that of a masked service.
[[nodiscard]] bool IsMasked(std::string_view account);
// The account that a service has, or had before it was masked.
[[nodiscard]] std::string WithoutMask(const std::string &account);
