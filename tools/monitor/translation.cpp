#include "tools/monitor/translation.h"

#include "platform/qtgeneration.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTranslator>

namespace {

bool install(const QString &name, const QString &folder)
{
    auto *const translator = new QTranslator(QCoreApplication::instance());
    return translator->load(QLocale(), name, QStringLiteral("_"), folder)
        && QCoreApplication::installTranslator(translator);
}

} // namespace

void installTranslations()
{
    const QString qt = qtTranslations();
    // On Windows Qt's catalogues are one file.
    if (!install(QStringLiteral("qtbase"), qt))
        install(QStringLiteral("qt"), qt);
    install(QStringLiteral("tonewell-monitor"), QStringLiteral(":/translations"));
}
