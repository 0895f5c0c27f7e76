#pragma once

/// What the small windows have in common, in pixels.
namespace measures
{

constexpr int margin = 20;
constexpr int sectionGap = 14;
constexpr int buttonWidth = 100; ///< the least

} // namespace measures
