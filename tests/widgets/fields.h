#pragma once

#include <gtest/gtest.h>
#include <limits>
#include <QApplication>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QWheelEvent>
#include <vorelutil/widgets/dbledit.h>
#include <vorelutil/widgets/unitedit.h>

inline constexpr double inf = std::numeric_limits<double>::infinity();
inline constexpr double noNumber = std::numeric_limits<double>::quiet_NaN();
inline constexpr int patience = 10000; // ms

/// A value field in the hands of a user.
template <class Field> struct Driven : Field
{
    using Field::Field;

    void send(QEvent&& event) { QApplication::sendEvent(this, &event); }
    void key(Qt::Key k) { QTest::keyClick(this, k); }
    void type(const QString& what)
    {
        this->selectAll();
        QTest::keyClicks(this, what);
    }
    void wheel(QPoint angle, Qt::KeyboardModifiers held = {}, Qt::ScrollPhase phase = {}, QPoint pixels = {})
    {
        QWheelEvent event({1, 1}, {1, 1}, pixels, angle, Qt::NoButton, held, phase, false);
        event.ignore();
        QApplication::sendEvent(this, &event);
        EXPECT_TRUE(event.isAccepted());
    }
    std::string shown() const { return this->text().toStdString(); }
    QColor background() const { return this->palette().color(this->backgroundRole()); }
    const QTimer& timer() const { return *this->template findChild<QTimer*>(); }
};
