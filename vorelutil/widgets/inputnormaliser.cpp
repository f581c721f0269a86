#include "inputnormaliser.h"

#include <QApplication>
#include <QClipboard>
#include <QKeyEvent>
#include <QLineEdit>

namespace {

QChar plain(QChar c)
{
    switch (c.unicode()) {
    case 0x03BC:
        return QChar(0x00B5);
    case 0x2212:
        return QLatin1Char('-');
    case 0x00A0:
    case 0x202F:
    case 0x2007:
    case 0x2009:
        return QLatin1Char(' ');
    default:
        return c;
    }
}

} // namespace

InputNormaliser::InputNormaliser(QLineEdit* field)
    : QValidator(field)
    , m_field(field)
    , m_former(field->validator())
{
    field->setValidator(this);
    field->installEventFilter(this);
}

InputNormaliser::~InputNormaliser()
{
    // Not when the field itself is being destroyed: it is no line edit any more then.
    auto* const field = qobject_cast<QLineEdit*>(parent());
    if (field && field->validator() == this) field->setValidator(m_former);
}

QString InputNormaliser::normalised(QString text)
{
    int comma = -1;
    int separators = 0;
    bool number = true;
    for (int i = 0; i < text.size(); ++i) {
        QChar const c = text.at(i);
        if (plain(c) != c) text[i] = plain(c);
        number = number && !c.isLetter();
        if (number && (c == QLatin1Char(',') || c == QLatin1Char('.'))) {
            ++separators;
            if (c == QLatin1Char(',')) comma = i;
        }
    }
    if (separators == 1 && comma >= 0) text[comma] = QLatin1Char('.');
    return text;
}

QValidator::State InputNormaliser::validate(QString& text, int& cursor) const
{
    if (!m_field->signalsBlocked()) text = normalised(text);
    return m_former ? m_former->validate(text, cursor) : Acceptable;
}

void InputNormaliser::fixup(QString& text) const
{
    if (m_former) m_former->fixup(text);
}

/// `text` as it has to be inserted at the cursor, or instead of the selection, to be normalised there.
QString InputNormaliser::asInserted(QString const& text) const
{
    bool const selection = m_field->hasSelectedText();
    int const start = selection ? m_field->selectionStart() : m_field->cursorPosition();
    QString whole = m_field->text();
    whole.replace(start, selection ? m_field->selectionLength() : 0, text);
    return normalised(whole).mid(start, text.size());
}

bool InputNormaliser::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::KeyPress || watched != m_field || m_field->isReadOnly()) {
        return QValidator::eventFilter(watched, event);
    }
    auto const& key = static_cast<QKeyEvent const&>(*event);
    if (key.matches(QKeySequence::Paste)) {
        QString const pasted = QApplication::clipboard()->text();
        QString const wanted = asInserted(pasted);
        if (wanted == pasted) return false;
        m_field->insert(wanted);
        event->accept();
        return true;
    }
    if (key.modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) return false;
    QString const typed = key.text();
    if (typed.isEmpty() || !typed.at(0).isPrint()) return false;
    QString const wanted = asInserted(typed);
    if (wanted == typed) return false;
    QKeyEvent plainKey(QEvent::KeyPress, key.key(), key.modifiers(), wanted, key.isAutoRepeat(),
                       static_cast<ushort>(key.count()));
    QCoreApplication::sendEvent(m_field, &plainKey);
    event->setAccepted(plainKey.isAccepted());
    return true;
}
