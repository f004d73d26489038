#pragma once

#include <QString>
#include <QStringList>

namespace taskrack {

// Case- and diacritic-insensitive text for matching: Unicode compatibility decomposition with
// the combining marks dropped, then case folding. "Café" and "CAFE" fold alike.
QString foldedForSearch(const QString &text);

// A typed query: tokens split at white space; a thread matches when every token is contained in
// its folded search text. No tokens is no search and matches nothing.
class SearchQuery
{
public:
    explicit SearchQuery(const QString &text);

    bool isEmpty() const { return m_tokens.isEmpty(); }
    bool matches(const QString &searchText) const;

private:
    QStringList m_tokens;
};

} // namespace taskrack
