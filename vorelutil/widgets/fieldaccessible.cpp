#include "fieldaccessible.h"

#include "dbledit.h"
#include "unitedit.h"

#include <QAccessibleWidget>

#include <algorithm>

namespace {

QString stateInWords(UnitEdit const& field)
{
    switch (field.status()) {
    case UnitEdit::EsEditValid:
        return QStringLiteral("editing");
    case UnitEdit::EsEditInvalid:
        return QStringLiteral("invalid input");
    case UnitEdit::EsCommitted:
        return QStringLiteral("waiting for the controller");
    default:
        return QStringLiteral("idle");
    }
}

QString stateInWords(DblEdit const& field)
{
    switch (field.status()) {
    case DblEdit::EsEditValid:
        return QStringLiteral("editing");
    case DblEdit::EsEditInvalid:
        return QStringLiteral("invalid input");
    default:
        return QStringLiteral("idle");
    }
}

bool isWaiting(UnitEdit const& field)
{
    return field.status() == UnitEdit::EsCommitted;
}

bool isWaiting(DblEdit const&)
{
    return false;
}

/// As by the keys: a `UnitEdit` is read-only while it waits, and is stepped all the same.
bool canBeStepped(UnitEdit const& field)
{
    return field.isEnabled();
}

bool canBeStepped(DblEdit const& field)
{
    return field.isEnabled() && !field.isReadOnly();
}

bool isUnitIncomplete(UnitEdit const& field)
{
    bool incomplete = false;
    field.getNumber(nullptr, nullptr, &incomplete);
    return incomplete;
}

bool isUnitIncomplete(DblEdit const& field)
{
    bool incomplete = false;
    field.parseNumber(nullptr, nullptr, &incomplete);
    return incomplete;
}

/// The toolkit's own interface of a line edit cannot be derived from, so text and cursor are told here anew.
template <typename Field>
class FieldInterface : public QAccessibleWidget,
                       public QAccessibleTextInterface,
                       public QAccessibleEditableTextInterface
{
public:
    explicit FieldInterface(Field* field)
        : QAccessibleWidget(field, QAccessible::EditableText)
    {
    }

    /// Not while the field is being destroyed and is only a widget any more.
    bool isValid() const override { return qobject_cast<Field*>(object()) != nullptr; }

    void* interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::TextInterface) return static_cast<QAccessibleTextInterface*>(this);
        if (type == QAccessible::EditableTextInterface) {
            return static_cast<QAccessibleEditableTextInterface*>(this);
        }
        return QAccessibleWidget::interface_cast(type);
    }

    QString text(QAccessible::Text what) const override
    {
        QString const own = QAccessibleWidget::text(what);
        if (!isValid()) return own;
        if (what == QAccessible::Value) return field().text();
        if (what != QAccessible::Description) return own;
        QStringList words(stateInWords(field()));
        if (!own.isEmpty()) words.prepend(own);
        QString const unit = field().baseUnit();
        bool const isUnitTold = unit.isEmpty() || field().text().contains(unit, Qt::CaseInsensitive);
        if (!isUnitTold && isUnitIncomplete(field())) words.append(unit);
        return words.join(QStringLiteral(", "));
    }

    void setText(QAccessible::Text what, QString const& text) override
    {
        if (what != QAccessible::Value) {
            QAccessibleWidget::setText(what, text);
        } else if (canBeChanged()) {
            field().selectAll();
            field().insert(text);
        }
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        if (!isValid()) return state;
        state.editable = true;
        state.selectableText = true;
        state.readOnly = field().isReadOnly();
        state.busy = isWaiting(field());
        return state;
    }

    QStringList actionNames() const override
    {
        QStringList names = QAccessibleWidget::actionNames();
        if (canBeStepped(field())) names << increaseAction() << decreaseAction();
        return names;
    }

    void doAction(QString const& name) override
    {
        bool const up = name == increaseAction();
        if (!up && name != decreaseAction()) {
            QAccessibleWidget::doAction(name);
        } else if (canBeStepped(field())) {
            field().step(up ? 1 : -1);
        }
    }

    // Text

    int characterCount() const override { return field().text().size(); }
    QString text(int start, int end) const override
    {
        int const from = inText(start);
        return field().text().mid(from, std::max(0, inText(end) - from));
    }
    int cursorPosition() const override { return field().cursorPosition(); }
    void setCursorPosition(int position) override { field().setCursorPosition(inText(position)); }
    int selectionCount() const override { return field().hasSelectedText() ? 1 : 0; }

    void selection(int index, int* start, int* end) const override
    {
        bool const selected = index == 0 && field().hasSelectedText();
        *start = selected ? field().selectionStart() : 0;
        *end = selected ? field().selectionEnd() : 0;
    }

    void addSelection(int start, int end) override { setSelection(0, start, end); }

    void removeSelection(int index) override
    {
        if (index == 0) field().deselect();
    }

    void setSelection(int index, int start, int end) override
    {
        if (index != 0) return;
        int const from = inText(start);
        field().setSelection(from, inText(end) - from);
    }

    QString attributes(int offset, int* start, int* end) const override
    {
        bool const inside = offset >= 0 && offset <= characterCount();
        *start = inside ? 0 : offset;
        *end = inside ? characterCount() : offset;
        return {};
    }

    // A line edit does not tell where its characters stand: its text is as wide as its font makes it, and the
    // cursor's rectangle, which it does tell, is where the cursor is.
    QRect characterRect(int offset) const override
    {
        QFontMetrics const metrics = field().fontMetrics();
        QString const shown = field().text();
        if (offset < 0 || offset >= shown.size()) return {};
        QRect const cursor = field().inputMethodQuery(Qt::ImCursorRectangle).toRectF().toRect();
        int const toCursor = metrics.horizontalAdvance(shown.left(field().cursorPosition()));
        int const left = cursor.center().x() - toCursor + metrics.horizontalAdvance(shown.left(offset));
        QRect const inField(left, cursor.top(), metrics.horizontalAdvance(shown.at(offset)), cursor.height());
        return {field().mapToGlobal(inField.topLeft()), inField.size()};
    }

    int offsetAtPoint(QPoint const& point) const override
    {
        QPoint const inField = field().mapFromGlobal(point);
        return field().rect().contains(inField) ? field().cursorPositionAt(inField) : -1;
    }

    void scrollToSubstring(int start, int end) override
    {
        field().setCursorPosition(end);
        field().setCursorPosition(start);
    }

    // Editable text

    void deleteText(int start, int end) override { replaceText(start, end, {}); }
    void insertText(int offset, QString const& text) override { replaceText(offset, offset, text); }

    void replaceText(int start, int end, QString const& text) override
    {
        if (!canBeChanged() || end < start) return;
        int const from = inText(start);
        int const to = inText(end);
        if (from == to) {
            field().setCursorPosition(from);
        } else {
            field().setSelection(from, to - from);
        }
        field().insert(text);
    }

private:
    Field& field() const { return static_cast<Field&>(*widget()); }
    int inText(int position) const { return std::clamp(position, 0, characterCount()); }
    bool canBeChanged() const { return field().isEnabled() && !field().isReadOnly(); }
};

QAccessibleInterface* makeInterface(QString const& className, QObject* object)
{
    if (className == QLatin1String("UnitEdit")) {
        if (auto* const field = qobject_cast<UnitEdit*>(object)) return new FieldInterface(field);
    }
    if (className == QLatin1String("DblEdit")) {
        if (auto* const field = qobject_cast<DblEdit*>(object)) return new FieldInterface(field);
    }
    return nullptr;
}

} // namespace

void fieldaccessible::install()
{
    QAccessible::installFactory(makeInterface);
}

void fieldaccessible::statusChanged(QWidget* field)
{
    if (!QAccessible::isActive()) return;
    QAccessible::State changed;
    changed.readOnly = true;
    changed.busy = true;
    QAccessibleStateChangeEvent state(field, changed);
    QAccessible::updateAccessibility(&state);
    QAccessibleEvent description(field, QAccessible::DescriptionChanged);
    QAccessible::updateAccessibility(&description);
}
