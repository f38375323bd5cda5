// SPDX-License-Identifier: MIT
// Placeholder until the problem table lands.
#pragma once

namespace quern::error {
enum class code_t : int { unknown };
} // namespace quern::error
