#include "ui/settingsfile.h"

// The settings are in the registry.

void settingsfile::install()
{
}
