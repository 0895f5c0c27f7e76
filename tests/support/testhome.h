#pragma once

#include <QString>

/// The directory that stands for the user's home while this test program runs. Home, settings, data and
/// temporary files lie in it before main() begins, and it goes with the program.
QString testHome();
