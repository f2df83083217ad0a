// The agent reaching the root side: the layer check must refuse it.
#include "daemon/privileged/PrivilegedServer.h"
