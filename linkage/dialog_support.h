// What the linkage and key dialogs share: the accessible names of their
// lists and grids, and where a failure while closing goes.
#pragma once

#include <exception>
#include <functional>

class QWidget;

namespace linkage {

// Where a dialog hands the failure of storing its rows at closing; the main
// window routes it to the common error report. It must not throw.
using ErrorSink = std::function<void(const std::exception&)>;

// Gives every control that a label of form names (QLabel::buddy) the
// label's text, without its mnemonic, as its accessible name, unless it has
// one already.
void nameControlsFromLabels(QWidget* form);

}  // namespace linkage
