#include "ui/scalemessage.h"

scalemessage::Change scalemessage::read(const void* message)
{
    Q_UNUSED(message)
    return {};
}
