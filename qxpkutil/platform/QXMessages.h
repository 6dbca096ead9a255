// The library's string table (ids 24700 to 24741) and the sink through which user
// messages are shown and yes/no questions asked. Without a sink, messages go nowhere
// and every question is answered No.
//
//   struct Console : QXMessageSink { ... };
//   Console console; QXSetMessageSink(&console);
//   QXShowMessage(24725, QXLoadString(24725));
#pragma once

#include <string>

namespace qxpkutil {

inline constexpr int kQXFirstStringId = 24700;
inline constexpr int kQXLastStringId = 24741;

// Texts the library shows, with their printf arguments where they take any. The table's
// other ids hold short texts for the setup dialogs (label files, ranges, settings).
inline constexpr int kQXMsgCombineBothSides = 24700;      // %.1f lo, %.1f hi, %d range
inline constexpr int kQXMsgRangeNegative = 24701;
inline constexpr int kQXMsgLeftEdgeNotLeft = 24702;
inline constexpr int kQXMsgRangeListEmpty = 24703;
inline constexpr int kQXMsgCombineOneSide = 24704;        // %s, %.1f, %s, %d, %d, %d
inline constexpr int kQXMsgRangeReversed = 24705;
inline constexpr int kQXMsgLabelFileHeader = 24706;       // the label file's header line
inline constexpr int kQXMsgLabelFileReadError = 24707;
inline constexpr int kQXMsgLabelFileEmpty = 24708;
inline constexpr int kQXMsgInvalidRange = 24710;          // %lf lo, %lf hi
inline constexpr int kQXMsgRangeRequired = 24711;
inline constexpr int kQXMsgFilterWidthOdd = 24712;
inline constexpr int kQXMsgFilterWidthZeroOrOdd = 24713;
inline constexpr int kQXMsgBelowMinimum = 24714;
inline constexpr int kQXMsgLabelFileWriteError = 24715;
inline constexpr int kQXMsgLabelNameTaken = 24717;
inline constexpr int kQXMsgLabelNameEmpty = 24718;
inline constexpr int kQXMsgDeltaXNotPositive = 24719;
inline constexpr int kQXMsgChargeOutOfRange = 24720;
inline constexpr int kQXMsgResolutionNotPositive = 24721;
inline constexpr int kQXMsgThresholdPercent = 24722;
inline constexpr int kQXMsgMinWidthAboveMax = 24723;
inline constexpr int kQXMsgLabelFileOpenError = 24725;
inline constexpr int kQXMsgLabelListDiffers = 24730;
inline constexpr int kQXMsgHeightPercent = 24733;
inline constexpr int kQXMsgBinWidthNotPositive = 24734;
inline constexpr int kQXMsgSettingsNotSaved = 24735;
inline constexpr int kQXMsgEnterNumber = 24738;
inline constexpr int kQXMsgWholeNumberInRange = 24739;
inline constexpr int kQXMsgNoMoreRanges = 24741;

// The text of string `id`; empty for ids outside the table.
std::string QXLoadString(int id);

class QXMessageSink {
 public:
  virtual ~QXMessageSink() = default;
  // Shows `text` (the final, formatted message) with an OK button.
  virtual void ShowMessage(int id, const std::string& text) = 0;
  // Asks a yes/no question; true means Yes.
  virtual bool AskYesNo(int id, const std::string& text) = 0;
};

// Installs `sink` (nullptr removes it).
void QXSetMessageSink(QXMessageSink* sink);
QXMessageSink* QXGetMessageSink();
// Forward to the installed sink; without one, nothing is shown and the answer is No.
void QXShowMessage(int id, const std::string& text);
bool QXAskYesNo(int id, const std::string& text);

}  // namespace qxpkutil
