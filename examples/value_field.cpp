// Value fields in 60 lines: two voltages, which a controller (here a timer) confirms half a second later.
//
//     value_field                    type "2.5 V" and Return; step by wheel; right-click for the step width
//     value_field --picture FILE     the states of a field and the step dialog, as in docs/images
#include <vorelutil/widgets/stepdialog.h>
#include <vorelutil/widgets/unitedit.h>

#include <QApplication>
#include <QFormLayout>
#include <QPainter>
#include <QTimer>

namespace {

const bool selectOnFocus = true; // one switch for all fields

/// A field of the panel: one raw step is 1 mV, 0 to 10 V.
UnitEdit* addVoltage(QWidget* panel, const QString& label)
{
    auto* field = new UnitEdit(panel, UnitEdit::DfltPfLastInput, &selectOnFocus, false, "Voltage");
    field->configure("V", 'm', 1, 0, 0, 10000);
    field->setValue(3300);
    static_cast<QFormLayout*>(panel->layout())->addRow(label, field);
    QObject::connect(field, &UnitEdit::changed, [field](int value) {
        QTimer::singleShot(500, field, [field, value] { field->setValue(value, true); }); // "confirmed"
    });
    return field;
}

/// Shows every state beside the step dialog and keeps the picture. The file says whether it could.
bool savePicture(QWidget* panel, const QString& path)
{
    addVoltage(panel, "Idle: the controller's value");
    addVoltage(panel, "Typed, valid")->setText("2.5 V");
    addVoltage(panel, "Typed, invalid")->setText("25 V");
    UnitEdit* committed = addVoltage(panel, "Waits for the controller");
    committed->setText("2.5 V");
    committed->commit();
    addVoltage(panel, "Disabled, averages")->setEnabled(false);
    UnitEdit* time = addVoltage(panel, "Seconds, from 60 s on");
    time->configure("s", 'm', 1, 0, 0, 0);
    time->setValue(3725900);
    time->configureStep();
    const QPixmap fields = panel->grab();
    const QPixmap dialog = time->findChild<StepDialog*>()->grab();
    QPixmap picture(fields.width() + dialog.width() + 20, qMax(fields.height(), dialog.height()));
    picture.fill(Qt::white);
    QPainter painter(&picture);
    painter.drawPixmap(0, 0, fields);
    painter.drawPixmap(fields.width() + 20, 0, dialog);
    return picture.save(path);
}

} // namespace

int main(int argc, char** argv)
{
    QApplication application(argc, argv);
    QWidget panel;
    new QFormLayout(&panel);
    const QStringList arguments = application.arguments();
    if (arguments.size() == 3 && arguments[1] == "--picture")
        return savePicture(&panel, arguments[2]) ? 0 : 1;

    UnitEdit* const first = addVoltage(&panel, "First");
    UnitEdit* const second = addVoltage(&panel, "Second");
    QObject::connect(first, &UnitEdit::stepChanged, second, &UnitEdit::changeStep); // one group, one step
    QObject::connect(second, &UnitEdit::stepChanged, first, &UnitEdit::changeStep);
    panel.show();
    return application.exec();
}
