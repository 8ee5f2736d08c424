// ToolProcess is all in its header; builds that list this source still find it.
#include "toolprocess.h"
