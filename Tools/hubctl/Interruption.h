#pragma once

namespace hubctl {

/// Ctrl-C and the end of the terminal or session, as something to ask for in place of dying at once.
///
/// Made once, before the first thread, so that all threads leave these signals alone. Programs that are started get
/// their signals back. Threading: NoteHubLost from any thread; all else from the main thread.
class Interruption
{
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// True once a signal came. Stays true.
    bool IsAskedFor();
    /// Ends the wait, too.
    void NoteHubLost();
    /// Waits for a signal (true) or the loss of the hub (false).
    bool Wait();

private:
    int mSignals = -1;
    int mLost = -1;
    bool mAskedFor = false;
};

}  // namespace hubctl
