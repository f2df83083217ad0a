// Up inside the core: the layer check must refuse it.
#include "browser/NameMatch.h"
