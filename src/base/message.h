// Messages to the user. The core never talks to a window system: it calls ShowMessage, and the
// program (desktop shell, command-line tool, tests) installs the hook that shows the text. The
// caption is always "Tessarel". Without a hook the last message is only remembered, so that
// tests and batch runs can read what the user would have been told.
#pragma once
#include <cstdint>

enum MessageFlags : uint32_t {
  MessageOk = 0,
  MessageOkCancel = 1,
  MessageYesNoCancel = 3,
  MessageYesNo = 4,
  MessageWarning = 0x30,
  MessageError = 0x10,
  MessageQuestion = 0x20,
};

enum MessageAnswer : int32_t {
  AnswerOk = 1,
  AnswerCancel = 2,
  AnswerYes = 6,
  AnswerNo = 7,
};

using MessageHook = int32_t (*)(const char16_t* text, const char16_t* caption, uint32_t flags);

extern const char16_t MessageCaption[];  // "Tessarel"

void SetMessageHook(MessageHook hook);
// Shows `text` and returns the answer; without a hook the answer is AnswerOk (or AnswerYes).
int32_t ShowMessage(const char16_t* text, uint32_t flags);
// The last text shown, or null; ClearLastMessage forgets it.
const char16_t* LastMessage();
void ClearLastMessage();
