#include "qxpkutil/platform/QXMessages.h"

#include <atomic>
#include <iterator>

namespace qxpkutil {
namespace {

// Texts that documents and users already know are kept letter for letter, odd spellings
// ("occured"), the double blank in 24700 and the printf placeholders included.
constexpr const char* kTexts[] = {
    /* 24700 */ "New range bounds of %.1f and  %.1f overlap multiple ranges to the right and "
                "left of Range %d.\n\nDo you want to combine ranges?",
    /* 24701 */ "Segment range values must be greater or equal to 0",
    /* 24702 */ "Left edge must be left of the right edge",
    /* 24703 */ "The detection range list is empty.",
    /* 24704 */ "A new %s bound of %.1f overlaps the %s bound of Range %d.\n\nDo you want to "
                "combine Ranges %d -> %d?",
    /* 24705 */ "Range bounds are reversed.",
    /* 24706 */ "Label\tX Value\tDelta X",
    /* 24707 */ "An error occured while trying to read the user label file.",
    /* 24708 */ "The user label file holds no labels.",
    /* 24709 */ "Delete the selected detection range?",
    /* 24710 */ "%lf to %lf is not a valid range.",
    /* 24711 */ "At least one detection range is required.",
    /* 24712 */ "The filter width must be an odd number.",
    /* 24713 */ "The filter width must be zero or an odd number.",
    /* 24714 */ "The value is below the allowed minimum.",
    /* 24715 */ "An error occured while trying to write to the specified user label file.",
    /* 24716 */ "Delete all user labels?",
    /* 24717 */ "A label with this name already exists.",
    /* 24718 */ "The label name must not be empty.",
    /* 24719 */ "The delta x value must be greater than 0.",
    /* 24720 */ "The charge state is out of range.",
    /* 24721 */ "The resolution must be greater than 0.",
    /* 24722 */ "The peak threshold must be between 0 and 100 percent.",
    /* 24723 */ "The minimum peak width must not exceed the maximum peak width.",
    /* 24724 */ "The signal-to-noise baseline range is empty.",
    /* 24725 */ "Unable to open the specified user label file.",
    /* 24726 */ "Save the changes to the user label list?",
    /* 24727 */ "Spectrum label files (*.lbs)",
    /* 24728 */ "Chromatogram label files (*.lbc)",
    /* 24729 */ "Reset the detection settings to their defaults?",
    /* 24730 */ "The list of labels you are about to import differs from the existing label "
                "list by its use of charge state, or labels type (one is mass difference list, "
                "while the other is mass-based list), or both. The current list must be "
                "cleared before the new list can be imported. Continue importing new labels "
                "list, and purge the existing list?",
    /* 24731 */ "No peak was found in the target range.",
    /* 24732 */ "The target mass lies outside the data.",
    /* 24733 */ "The percent of peak height must be between 1 and 99.",
    /* 24734 */ "The bin width must be greater than 0.",
    /* 24735 */ "The settings could not be saved.",
    /* 24736 */ "The settings could not be read; defaults are used.",
    /* 24737 */ "The range lies outside the data.",
    /* 24738 */ "Enter a number.",
    /* 24739 */ "Enter a whole number within the allowed range.",
    /* 24740 */ "The peak could not be inserted at this position.",
    /* 24741 */ "No more detection ranges can be added.",
};
static_assert(std::size(kTexts) == kQXLastStringId - kQXFirstStringId + 1);

constinit std::atomic<QXMessageSink*> g_sink{nullptr};

}  // namespace

std::string QXLoadString(int id) {
  if (id < kQXFirstStringId || id > kQXLastStringId) return {};
  return kTexts[id - kQXFirstStringId];
}

void QXSetMessageSink(QXMessageSink* sink) { g_sink.store(sink); }

QXMessageSink* QXGetMessageSink() { return g_sink.load(); }

void QXShowMessage(int id, const std::string& text) {
  if (QXMessageSink* sink = g_sink.load()) sink->ShowMessage(id, text);
}

bool QXAskYesNo(int id, const std::string& text) {
  QXMessageSink* sink = g_sink.load();
  return sink != nullptr && sink->AskYesNo(id, text);
}

}  // namespace qxpkutil
