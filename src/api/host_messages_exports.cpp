// The exported functions for messages, windows, function words and message boxes.
#include "brisolt_host.h"

#include "api/export.h"
#include "platform/function_words.h"
#include "platform/message.h"
#include "platform/message_box.h"
#include "platform/thread.h"
#include "port/posting.h"

namespace message = brisolt::message;

namespace {

int32_t answer(bool success) noexcept {
    return success ? 1 : -1;
}

} // namespace

BRISOLT_EXPORT uint32_t ComHostThreadId() {
    return brisolt::thread::currentId();
}

BRISOLT_EXPORT int32_t ComHostCreateWindow(ComHostWindowFunc function, void* context) {
    return message::createWindow(function, context, false);
}

BRISOLT_EXPORT int32_t ComHostCreateSharedWindow(ComHostWindowFunc function, void* context) {
    return message::createWindow(function, context, true);
}

BRISOLT_EXPORT int32_t ComHostDestroyWindow(int32_t window) {
    return answer(message::destroyWindow(window));
}

BRISOLT_EXPORT int32_t ComHostPostMessage(int32_t window, uint32_t message, uintptr_t first,
                                          intptr_t second) {
    return answer(message::postToWindow(window, message, first, second));
}

BRISOLT_EXPORT int32_t ComHostPostThreadMessage(uint32_t thread, uint32_t message, uintptr_t first,
                                                intptr_t second) {
    return answer(message::postToThread(thread, message, first, second));
}

BRISOLT_EXPORT int32_t ComHostPostChar(uint32_t thread, int32_t character) {
    auto first = static_cast<uintptr_t>(static_cast<uint32_t>(character));
    return answer(message::postToThread(thread, COM_HOST_MESSAGE_CHAR, first, 0));
}

BRISOLT_EXPORT int32_t ComHostPostQuit(uint32_t thread) {
    return answer(message::postQuit(thread));
}

BRISOLT_EXPORT int32_t ComHostGetMessage(ComHostMessage* message, int32_t milliseconds) {
    return brisolt::awaitMessage(message, milliseconds);
}

BRISOLT_EXPORT int32_t ComHostDispatchMessage(const ComHostMessage* message) {
    return message && message::dispatch(*message) ? 1 : 0;
}

BRISOLT_EXPORT int32_t ComHostMessageDescriptor() {
    return message::descriptor();
}

BRISOLT_EXPORT uint32_t ComHostFunctionWord(void (*function)()) {
    return brisolt::functionWords::wordOf(function);
}

BRISOLT_EXPORT void (*ComHostWordFunction(uint32_t word))() {
    return brisolt::functionWords::functionOf(word);
}

BRISOLT_EXPORT int32_t ComHostSetMessageBox(void (*function)(const char* text, const char* caption)) {
    brisolt::messageBox::setFunction(function);
    return 1;
}
