// What the RPC subsystem asks of the platform. platform/ declares it, posix/ implements it in files of the same names;
// unique_text() stands in posix/leftovers.cpp, which reads such names.
#pragma once

#include "platform/named_pipe.h"
#include "platform/named_semaphore.h"
#include "platform/shared_mapping.h"
#include "platform/shared_names.h"
#include "platform/stop_event.h"
