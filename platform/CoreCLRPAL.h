// The platform layer: 16-bit text, formatted output with mixed string widths,
// and the small Win32-named layer on libc and POSIX threads.
#pragma once

#include "platform/BStr.h"
#include "platform/BoundedCopy.h"
#include "platform/Clock.h"
#include "platform/Environment.h"
#include "platform/Exceptions.h"
#include "platform/File16.h"
#include "platform/FileSystem.h"
#include "platform/FormattedOutput.h"
#include "platform/Handles.h"
#include "platform/Synchronization.h"
#include "platform/Text16.h"
#include "platform/TextConversion.h"
#include "platform/Threads.h"
#include "platform/Win32Types.h"
