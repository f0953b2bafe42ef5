#pragma once

#include <memory>
#include <string>

/// What is done to single-file projects as files: removing what is of no use, and putting one in the place of another.
/// Nobody's open file is touched, and no rollback journal of one file is left to be taken for that of the next.
///
/// Threading: any thread. Locks: none. Failures are logged like those of git.
namespace noxstorage::git::RopeBackends {

enum class FileStep
{
    Done,
    InUse,  ///< somebody has the file open, in this process or in another one
    Taken,  ///< something lies in a place that was to be free
    Failed
};

/// Which file lies at a path: two that differ are two files, whatever they are called. Empty: none.
std::string IdentityOf(const std::string& inFile);

/// The same with size and time of its last change: as long as that is equal, nobody has written to it.
std::string StateOf(const std::string& inFile);

/// Whether somebody has the file open. What a killed program left half done in it is rolled back on the way.
/// Done: nobody has, or it is not there, or no project.
FileStep LookForUsers(const std::string& inFile);

/// Deletes a file that was left over, with its journal, unless somebody has it open. Done as well when there is none.
FileStep RemoveLeftover(const std::string& inFile);

/// Deletes an empty journal whose file is gone: after a power cut a deletion may be there by half. One that holds
/// something is what a file needs that was moved away from it.
FileStep RemoveLoneJournal(const std::string& inFile);

/// Puts a closed file in a place, over what lies there only where that is wanted. Done: durable on return. InUse and
/// Taken: both are as they were. After a failure what lies in the place is the one or the other, whole.
FileStep PutInPlace(const std::string& inFile, const std::string& inPlace, bool inOverwrite);

}  // namespace noxstorage::git::RopeBackends
