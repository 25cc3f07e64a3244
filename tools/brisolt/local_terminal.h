// The terminal the user sits at, if there is one.
#pragma once

/// Standard input as a raw terminal while this lives: keys come one by one and mean nothing here. Put back as it
/// was at the end. Does nothing when standard input is no terminal. One at a time.
class LocalTerminal {
public:
    LocalTerminal();
    LocalTerminal(const LocalTerminal&) = delete;
    LocalTerminal& operator=(const LocalTerminal&) = delete;
    ~LocalTerminal();

    static bool present();

    /// From any thread: as it was before, and raw again when the program has come back to the foreground.
    static void putBack();
    static void takeAgain();
};
