// The notation of chat scripts: words, and what stands in them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The words of a script file: parted by blanks, in quotes where they hold blanks. A line that begins with '#' is a
/// comment.
std::vector<std::string> scriptWords(std::string_view text);

/// What is in a script's file. Throws Failure when it is none or cannot be read: a pipe or a device might never end.
std::string fileText(const std::string& name);

/// "expect-send-expect": the parts; "\-" is no border.
std::vector<std::string> subExpects(const std::string& word);

struct ScriptTexts {
    std::string phone, phone2; ///< \T and \U
    bool environment = false;  ///< $NAME stands for a variable
};

/// What is waited for, in bytes.
std::string expectText(const std::string& word, const ScriptTexts& texts);

/// A step of a reply.
struct SendStep {
    enum Kind { bytes, breakSignal, second, tenth } kind = bytes;
    std::string text; ///< of `bytes`
};
struct Reply {
    std::vector<SendStep> steps;
    bool secret = false; ///< \q: not to be shown
};
/// A carriage return stands at the end unless \c says otherwise. A word "@FILE" is that file's text; throws Failure
/// when it cannot be read.
Reply replySteps(const std::string& word, const ScriptTexts& texts);
