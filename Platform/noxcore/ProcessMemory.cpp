#include "Platform/noxcore/ProcessMemory.h"

#include <malloc.h>

namespace noxcore::process {

void GiveBackFreeMemory()
{
    malloc_trim(0);
}

}  // namespace noxcore::process
