#pragma once

namespace bench
{

/// An installation, in the current directory from now on, whose engine is the talker, which will say @p lines.
void installTalker(int lines);

} // namespace bench
