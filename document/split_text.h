// Splitting a text into items at a one-character separator, the way lists
// are kept in this program: file-extension lists ("*.csf; *.dgn" at ";"),
// paths (at "/") and value lists (at ",").
//
// "^" is the escape: the character after it joins the current item as it
// stands, so "^;" puts a ";" into an item and "^^" a "^". Items are not
// trimmed. An empty item between two separators is kept; the item after the
// last separator is kept only if it is not empty, so "a," gives one item.
#pragma once

#include <QString>
#include <QStringList>

namespace document {

// Splits text at the first character of separator; an empty separator means
// ",". An empty text gives an empty list. A "^" that ends the text escapes
// nothing and is dropped.
QStringList splitText(const QString& text, const QString& separator = QStringLiteral(","));

}  // namespace document
