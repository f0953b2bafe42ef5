#pragma once

#include "Inc/Model/GitBoxIOCopy.h"
#include "Inc/Model/GitBoxSandbox.h"

namespace VantryLocalHub::GitBox {

/// An open session to copy from, at one of its revisions. 200; 404: no such revision; 500.
int OpenCopySource(Sandbox& inSandbox, const ImmutableString& inRevision, IO::CopySource& outSource,
                   IO::LocatorRows& outLocators);

}  // namespace VantryLocalHub::GitBox
