#pragma once

#include <string>

/// How a session's folder ends: first it is marked, then it loses what makes it a session, then it goes. Each step is
/// durable before the next, so that no crash in between leaves half a session that could be read.
///
/// Threading: any thread; no lock of its own. One caller a folder.
namespace VantryLocalHub::GitBox::SessionDeletion {

/// Makes the folder no session any more, for good. False: it is one as before.
bool Mark(const std::string& inFolder);
bool IsMarked(const std::string& inFolder);
/// Takes the mark away, for good. After a failure it may stand there or not.
bool Unmark(const std::string& inFolder);
/// Removes a marked folder, its mark last. True when it is gone; what is left otherwise keeps its mark, or is empty.
bool Finish(const std::string& inFolder);
/// Both, of a folder that nobody is to find any more.
bool MarkAndFinish(const std::string& inFolder);

/// What the start scan does with a folder that no session can be read from. One that is marked is removed: its user
/// deleted it. Any other, as a creation that was cut off leaves it, stays as it is and is told of, lest something that
/// can still be read is lost. True when there is nothing else to do with the folder.
bool ClearUpLeftover(const std::string& inFolder);

}  // namespace VantryLocalHub::GitBox::SessionDeletion
