// Qt where root runs it: the layer check must refuse it.
#include <QString>
