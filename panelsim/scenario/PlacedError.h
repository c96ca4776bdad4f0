#pragma once

#include "panelsim/scenario/TextPlace.h"

#include <stdexcept>
#include <string>

namespace panelsim {

/** Something is wrong at a place of a file. The text is one line, and does not say where. */
class PlacedError : public std::runtime_error {
public:
    PlacedError(TextPlace itsPlace, const std::string& text) : std::runtime_error(text), errorPlace(itsPlace) {}

    TextPlace place() const { return errorPlace; }

private:
    TextPlace errorPlace;
};

} // namespace panelsim
