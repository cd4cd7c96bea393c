// SPDX-License-Identifier: MIT
// handles: closing them.
#include "tvbase/objects.h"
#include "tvbase/result.h"

BOOL CloseHandle(HANDLE hObject) { return IsPseudoHandle(hObject) ? TRUE : Answer(CloseObject(hObject, false)); }
