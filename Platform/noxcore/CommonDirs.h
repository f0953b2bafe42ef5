#pragma once

#include "Platform/noxcore/FileSupport.h"

namespace noxcore::filesupport::commondirs {

/// The folder that all programs of the company share, below the user's data; not made by this.
Path NOXSharedDocumentsDir();

}  // namespace noxcore::filesupport::commondirs
