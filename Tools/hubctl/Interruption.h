#pragma once

namespace hubctl {

/// Ctrl-C and the end of the terminal or session, as something to ask for in place of dying at once: made just before
/// there is something to clean up. One at a time. Programs that are started get their signals back.
///
/// Threading: NoteHubLost from any thread; all else from the main thread.
class Interruption
{
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// True once a signal came. Stays true.
    static bool IsAskedFor();
    /// Ends the wait, too.
    void NoteHubLost();
    /// Waits for a signal (true) or the loss of the hub (false).
    bool Wait();

private:
    int mLost = -1;
};

}  // namespace hubctl
