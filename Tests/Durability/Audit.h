#pragma once

#include <string>

#include "Inc/Model/GitBox.h"
#include "Tests/Durability/Ledger.h"

namespace durability {

/// What the end that a store came to may have taken away of what it answered.
enum class Loss
{
    Nothing,
    LatestSideData  ///< a power cut: side databases hold what was answered up to some moment
};

/// Compares a store with the ledger: every answered write is there, an attempt is there whole or not at all, no folder
/// counts as a session that should not, each reference has all its objects with the content that their ids promise, no
/// sync point names a commit that is not there, and each preference is as it was answered. Gives the first thing that
/// is wrong, else an empty text, and then the ledger says what became of the attempts.
std::string Audit(VantryLocalHub::GitBox::GitBox& inStore, Ledger& ioLedger, Loss inLoss);

/// What lies in the autosave location that no project is: right after a store was opened there is nothing. Gives the
/// first such file, else an empty text.
std::string AuditLeftovers();

}  // namespace durability
