#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Client/Wire/Session.h"
#include "Inc/Model/Lyra2Db.h"
#include "Inc/Model/StoreRecords.h"
#include "Platform/noxstorage/Git.h"

/// Single-file projects (".lyr"): a whole session in one file that people move, mail and archive. The tree of its
/// branch `session` is that of a session folder, with three files more: `filepath` (where the file was made),
/// `uniqueid` and `properties`. What a session folder keeps in databases lies on branches of their own
/// (RopeFileBranches.h).
///
/// A project goes by ids that its path gives, so that a copy beside the original is another session; of the ids that
/// the file holds only `uniqueid` stays with it.
///
/// Functions give true, or a status, on success; a failure is logged under "RopeFile".
/// Threading: any thread. Locks: none.
namespace VantryLocalHub::GitBox::RopeFile::IO {

using noxstorage::git::CommitPtr;
using noxstorage::git::RepoPtr;

/// A file that is open, with the folder that is its repository's meanwhile.
struct OpenFile
{
    RepoPtr mRepo;
    std::string mSideFolder;
    dto::Session mSession;
    ImmutableString mUniqueID;
};

/// Whether it is a whole path, its name one that every system takes which the file may travel to, short enough that
/// what is built beside it finds a name, and none that such a file or a part of a database has.
bool CanBeMade(const std::string& inFile);
/// Whether a file can come to a place: 200; 404: there is no such folder; 409: something is there already that is no
/// file, or a file that may not be overwritten; 500: that cannot be said.
int LookAtPlace(const std::string& inFile, bool inOverwrite);
/// The ids of the session and the production in a file at a path.
void CreateUniqueRopeFileIDs(const std::string& inFile, dto::Session& outSession);

/// A file that is to take a place is built beside it, under its name with one of these behind: a project that is made,
/// copied or thinned. One of such a name that nobody has open was left by a killed process, and is of no use: the names
/// are such that nobody else comes upon them.
constexpr std::string_view kMaking = "-localhub-making";
constexpr std::string_view kCopying = "-localhub-copying";
constexpr std::string_view kCompacting = "-localhub-compacting";
inline constexpr std::array kNamesBeside = {kMaking, kCopying, kCompacting};

/// What a new file says of itself. Whose it is to be is not known yet: it stays here until somebody says otherwise. One
/// that gets the branches of another says what that says.
enum class Mode
{
    LocalOnly,
    OfItsBranches
};

/// 200; 400: no file can have that name; 409: there is one already, and it may not be overwritten; 423: somebody has
/// that one open; 500. What lay there is there, whole, until the new one is; after a 500 it is the one or the other.
/// inPlace: a file that is only built here, to be put there in the end; the name and the ids are those of that place.
int CreateRopeFile(const std::string& inFile, bool inOverwrite, Mode inMode, const dto::RawJSON& inProperties,
                   OpenFile& outFile, const std::string& inPlace = {});
/// Closes a file that was built beside its place and puts it there. 200; 409: something lies there that may not be
/// overwritten; 423: somebody has open what lies there; 500: what is there then is the one or the other, whole.
int MoveIntoPlace(const std::string& inFile, const std::string& inPlace, bool inOverwrite, OpenFile& ioFile);
/// Removes what killed processes left beside a place, but not what somebody has open.
/// Nobody of this process may be about to put something there.
void RemoveLeftovers(const std::string& inFile);

/// 200; 400: no file can have that name; 404: there is none; 423: somebody else has it open; 500: it cannot be opened,
/// or is no such project.
int OpenRopeFile(const std::string& inFile, OpenFile& outFile);

void CloseFile(OpenFile& ioFile);
/// Closes and deletes a file that was made and could not be finished.
void RemoveFailedFile(const std::string& inFile, OpenFile& ioFile);

/// Deletes what was made for a file while it was open.
void DeleteSideFolder(const std::string& inFolder);

}  // namespace VantryLocalHub::GitBox::RopeFile::IO
