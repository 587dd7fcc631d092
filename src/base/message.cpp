// The message hook and the memory of the last message shown.
#include "base/message.h"

#include "base/text.h"

const char16_t MessageCaption[] = u"Tessarel";

static MessageHook messageHook;
static char16_t lastMessage[512];
static bool haveLastMessage;

void SetMessageHook(MessageHook hook) {
  messageHook = hook;
}

int32_t ShowMessage(const char16_t* text, uint32_t flags) {
  TextCopy(lastMessage, sizeof lastMessage / sizeof lastMessage[0], text);
  haveLastMessage = true;
  if (messageHook) return messageHook(text, MessageCaption, flags);
  return (flags & 0xF) == MessageYesNo || (flags & 0xF) == MessageYesNoCancel ? AnswerYes
                                                                              : AnswerOk;
}

const char16_t* LastMessage() {
  return haveLastMessage ? lastMessage : nullptr;
}

void ClearLastMessage() {
  haveLastMessage = false;
}
