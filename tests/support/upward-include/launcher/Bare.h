// A bare name found in a library the launcher may not include: the layer check must refuse it.
#include "Protocol.h"
