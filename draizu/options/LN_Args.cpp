#include <draizu/options/LN_Args.h>

using namespace Qt::StringLiterals;

QList<QString> LN_Args::splitArgs(QString const & line)
{
    QList<QString> arguments;
    QString argument;
    QChar quote;
    bool escaped = false;

    qsizetype i = 0;
    auto skipSpace = [&] {
        while (i < line.size() && line.at(i).isSpace())
            ++i;
    };
    skipSpace();
    while (i < line.size()) {
        QChar const c = line.at(i++);
        if (escaped) {
            escaped = false;
            argument.append(c);
        } else if (c == u'\\') {
            escaped = true;
        } else if (quote.isNull()) {
            if (c == u'\'' || c == u'"') {
                quote = c;
            } else if (c.isSpace()) {
                arguments.append(argument);
                argument.clear();
                skipSpace();
            } else {
                argument.append(c);
            }
        } else if (c == quote) {
            quote = QChar();
        } else {
            argument.append(c);
        }
    }
    if (!argument.isEmpty())
        arguments.append(argument);
    return arguments;
}

QString LN_Args::joinArgs(QList<QString> const & arguments)
{
    QString line;
    for (QString argument : arguments) {
        argument.replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s);
        if (!line.isEmpty())
            line.append(u' ');
        line += u'"' + argument + u'"';
    }
    return line;
}
