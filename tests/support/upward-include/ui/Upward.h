// An upward include: the layer check must refuse it.
#include "controller/AppDelegate.h"
