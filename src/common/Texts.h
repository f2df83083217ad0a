#pragma once

#include <QString>

class QCoreApplication;

namespace Texts {

// Loads the id-based translation for the user's locale, English when there is none. Every text
// of the product is looked up with qtTrId after this.
void install(QCoreApplication &app);
// "Salvora 3", translated.
QString appName();

} // namespace Texts
