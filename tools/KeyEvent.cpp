#include "tools/KeyEvent.h"

namespace tools {

namespace {

const char* word(KeyEvent::Change change)
{
    switch (change) {
    case KeyEvent::Change::Pressed:
        return "pressed";
    case KeyEvent::Change::Repeated:
        return "repeated";
    case KeyEvent::Change::Released:
        return "released";
    }
    return "";
}

} // namespace

std::string describe(const KeyEvent& event)
{
    return "key " + std::to_string(event.key) + " " + word(event.change);
}

} // namespace tools
