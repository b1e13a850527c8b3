#pragma once

#include <QString>
#include <QStringList>

/// How many columns of a terminal a text takes: two for each character of Chinese and its like.
int terminalColumns(const QString &text);

/// The text in exactly so many columns: cut, or filled with spaces.
QString fittedToColumns(const QString &text, int columns);

/// The text in lines of at most so many columns, which is at least 2, divided between words where
/// there are any.
QStringList wrappedToColumns(const QString &text, int columns);

/// ASCII only: each other character is a question mark.
QString asciiOnly(const QString &text);
