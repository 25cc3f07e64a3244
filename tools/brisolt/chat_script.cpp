#include "chat_script.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "failure.h"

namespace {

bool blank(char byte) {
    return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
}

bool octal(char byte) {
    return byte >= '0' && byte <= '7';
}

/// A word as it is read: one character of the notation after the other.
struct Reader {
    std::string_view rest;
    char take() {
        const char first = rest.empty() ? '\0' : rest.front();
        if (!rest.empty())
            rest.remove_prefix(1);
        return first;
    }
};

/// Up to three octal digits, the first of which has been read.
char octalByte(Reader& reader, char first) {
    int value = first - '0';
    for (int digits = 1; digits < 3 && !reader.rest.empty() && octal(reader.rest.front()); ++digits)
        value = value * 8 + (reader.take() - '0');
    return static_cast<char>(value);
}

std::string variable(Reader& reader) {
    std::string name;
    while (!reader.rest.empty() &&
           (std::isalnum(static_cast<unsigned char>(reader.rest.front())) != 0 || reader.rest.front() == '_'))
        name += reader.take();
    const char* const value = std::getenv(name.c_str());
    return value != nullptr ? value : "";
}

/// An escape that stands for bytes wherever it is; its letter has been read.
std::string escapedBytes(Reader& reader, char letter) {
    switch (letter) {
    case 'b': return "\b";
    case 'n': return "\n";
    case 'r': return "\r";
    case 's': return " ";
    case 't': return "\t";
    case 'N': return std::string(1, '\0');
    default: return std::string(1, octal(letter) ? octalByte(reader, letter) : letter);
    }
}

/// The bytes of what is no escape, and '^' with its letter.
std::string plainBytes(Reader& reader, char byte, const ScriptTexts& texts) {
    if (byte == '^' && !reader.rest.empty())
        return std::string(1, static_cast<char>(reader.take() & 0x1f));
    if (byte == '$' && texts.environment)
        return variable(reader);
    return std::string(1, byte);
}

} // namespace

std::string fileText(const std::string& name) {
    std::error_code error;
    const std::filesystem::file_status about = std::filesystem::status(name, error);
    if (!error && !std::filesystem::is_regular_file(about))
        throw Failure(name + " is no file of bytes");
    std::ifstream file(name, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (error || (!file.good() && !file.eof()))
        throw Failure(name + ": " + (error ? error.message() : std::strerror(errno)));
    return text;
}

namespace {

std::string replyFrom(const std::string& name) {
    std::string text = fileText(name);
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

/// What is being put together of a reply.
struct Builder {
    Reply reply;
    bool returns = true;
    void add(const std::string& text) {
        if (reply.steps.empty() || reply.steps.back().kind != SendStep::bytes)
            reply.steps.emplace_back();
        reply.steps.back().text += text;
    }
    void add(SendStep::Kind kind) { reply.steps.push_back({kind, {}}); }
};

void addEscape(Builder& builder, Reader& reader, const ScriptTexts& texts) {
    const char letter = reader.take();
    switch (letter) {
    case 'c': builder.returns = false; break;
    case 'd': builder.add(SendStep::second); break;
    case 'p': builder.add(SendStep::tenth); break;
    case 'K': builder.add(SendStep::breakSignal); break;
    case 'q': builder.reply.secret = true; break;
    case 'T': builder.add(texts.phone); break;
    case 'U': builder.add(texts.phone2); break;
    default: builder.add(escapedBytes(reader, letter));
    }
}

} // namespace

std::vector<std::string> scriptWords(std::string_view text) {
    std::vector<std::string> words;
    bool lineStart = true;
    for (std::size_t i = 0; i < text.size();) {
        if (lineStart && text[i] == '#') {
            i = std::min(text.find('\n', i), text.size());
            continue;
        }
        lineStart = text[i] == '\n';
        if (blank(text[i])) {
            ++i;
            continue;
        }
        std::string word;
        const char quote = text[i] == '"' || text[i] == '\'' ? text[i++] : '\0';
        for (; i < text.size() && (quote != '\0' ? text[i] != quote : !blank(text[i])); ++i) {
            if (text[i] == '\\' && i + 1 < text.size()) {
                // A quote behind it is that quote; everything else is left to the reader of the word.
                if (quote == '\0' || text[i + 1] != quote)
                    word += text[i];
                ++i;
            }
            word += text[i];
        }
        if (quote != '\0' && i < text.size())
            ++i;
        words.push_back(word);
    }
    return words;
}

std::vector<std::string> subExpects(const std::string& word) {
    std::vector<std::string> parts(1);
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (word[i] == '-') {
            parts.emplace_back();
        } else if (word[i] == '\\' && i + 1 < word.size()) {
            if (word[i + 1] != '-')
                parts.back() += word[i];
            parts.back() += word[++i];
        } else {
            parts.back() += word[i];
        }
    }
    return parts;
}

std::string expectText(const std::string& word, const ScriptTexts& texts) {
    std::string text;
    for (Reader reader{word}; !reader.rest.empty();) {
        const char byte = reader.take();
        text += byte == '\\' && !reader.rest.empty() ? escapedBytes(reader, reader.take())
                                                     : plainBytes(reader, byte, texts);
    }
    return text;
}

Reply replySteps(const std::string& word, const ScriptTexts& texts) {
    std::string text = word;
    if (word == "EOT")
        text = "^D\\c";
    else if (word == "BREAK")
        text = "\\K\\c";
    else if (!word.empty() && word.front() == '@')
        text = replyFrom(word.substr(1));
    Builder builder;
    for (Reader reader{text}; !reader.rest.empty();) {
        const char byte = reader.take();
        if (byte == '\\' && !reader.rest.empty())
            addEscape(builder, reader, texts);
        else
            builder.add(plainBytes(reader, byte, texts));
    }
    if (builder.returns)
        builder.add("\r");
    return builder.reply;
}
