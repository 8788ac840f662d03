// The platform library's own answers, asked inside the target through the
// interface the generator uses, so that the target's own library answers.
#pragma once

#include <string>

#include "model.h"

namespace preview {

// What the library says about `unit`, asked from a child chrooted to `root`.
UnitAnswers AskAboutUnit(const std::string& root, const std::string& unit);

// The platform's unit listing with each unit's file, asked the same way.
Listing ListPlatformUnits(const std::string& root);

}  // namespace preview
