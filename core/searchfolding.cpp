#include "core/searchfolding.h"

#include <QRegularExpression>

namespace taskrack {

QString foldedForSearch(const QString &text)
{
    const QString decomposed = text.normalized(QString::NormalizationForm_KD);
    QString stripped;
    stripped.reserve(decomposed.size());
    for (const QChar c : decomposed) {
        const QChar::Category category = c.category();
        if (category == QChar::Mark_NonSpacing || category == QChar::Mark_SpacingCombining ||
            category == QChar::Mark_Enclosing)
            continue;
        stripped.append(c);
    }
    return stripped.toCaseFolded();
}

SearchQuery::SearchQuery(const QString &text)
    : m_tokens(foldedForSearch(text).split(QRegularExpression(QStringLiteral("\\s+")),
                                           Qt::SkipEmptyParts))
{
}

bool SearchQuery::matches(const QString &searchText) const
{
    if (m_tokens.isEmpty())
        return false;
    const QString folded = foldedForSearch(searchText);
    for (const QString &token : m_tokens) {
        if (!folded.contains(token))
            return false;
    }
    return true;
}

} // namespace taskrack
