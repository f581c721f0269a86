#pragma once

#include <vorelutil/platform/export.h>
#include <vorelutil/widgets/unitedit.h>

#include <QDialog>

class QCheckBox;
class QLabel;
class QProgressBar;
class QPushButton;
class UEditSpecDlg;

/// A `UnitEdit` that can sweep its value from a start to an end while the device measures.
///
/// A sweep sends `steps` evenly spaced raw values, on request back to the first as well. Each point is
/// announced by `changed`, as if the user had committed it, and the next follows `delay` ms after the program
/// confirmed it with `setValue`. A point that is not confirmed within 500 ms ends the sweep. However a sweep
/// ends, `changed` announces the value that the field had before. `sendTel` tells the device what goes on, so
/// that it can label what it measures; the owner sends each as a "SET" telegram:
///
/// | address | value | when |
/// |---|---|---|
/// | 0x1071, 0x1072 | start, end, rescaled | at the start of a run |
/// | 0x1073 | steps | at the start of a run |
/// | 0x1074 | unit code of the rescaled numbers | at the start of a run |
/// | 0x1075 | 1 for forward and backward, else 0 | at the start of a run |
/// | 0x1070 | index of the point, from 0 on | with each point, after `changed` |
///
/// The context menu's entry "Spectroscopy..." opens a dialog with the settings. There is one such dialog at a
/// time in the process.
///
/// GUI thread only. Nothing is thrown. A slot of its signals may call `stop`, `run` or `setValue`, and may
/// delete the field. The exception is `changed` when the focus is lost or a key is pressed: there the toolkit
/// itself goes on with the field, so use `deleteLater`.
class VORELUTIL_EXPORT UEditSpec : public UnitEdit
{
    Q_OBJECT
    Q_PROPERTY(int sweepStart READ sweepStart WRITE setSweepStart)
    Q_PROPERTY(int sweepEnd READ sweepEnd WRITE setSweepEnd)
    Q_PROPERTY(int sweepSteps READ sweepSteps WRITE setSweepSteps)
    Q_PROPERTY(int sweepDelay READ sweepDelay WRITE setSweepDelay)
    Q_PROPERTY(bool sweepForwardBackward READ isSweepForwardBackward WRITE setSweepForwardBackward)
    Q_PROPERTY(bool running READ isRunning STORED false)

public:
    /// As `UnitEdit`; no sweep is set up.
    explicit UEditSpec(QWidget* parent = nullptr, UnitEdit::DfltInputPf dfltInputPf = DfltPfConfigured,
                       bool const* selectOnFocus = nullptr, bool directCommit = false,
                       QString groupName = QString());
    ~UEditSpec() override;

    /// Stores the settings of the next run; whether they can be run (see `checkXResolution`).
    ///
    /// `start` and `end` are raw values, unsigned where the input is; `steps` is the number of points one
    /// way, `delay` the pause between points in ms. They can be changed at any time: a sweep that runs keeps
    /// its own. A dialog that is open does not show them before it is closed and opened anew.
    bool setSpecParams(int start, int end, int steps, int delay, bool forwardBackward);

    /// Whether the settings can be run, and what the device is told of them.
    ///
    /// They can with 2 points and more, no fewer raw steps between the ends than between the points, a delay
    /// of 10 to 10000 ms, a base unit of the unit table that takes prefixes (docs: `algoParseUnit`), and ends
    /// that are finite and more than 100 apart on the device's scale, which has to be finite, too. That scale
    /// is a power of 1000 which brings the larger magnitude of the two into (1e6, 1e9]: `*xStart` and `*xEnd`
    /// are the ends on it, rounded, `*unit` is the unit code with the prefix that makes up for it. Each
    /// pointer may be null; nothing is written when the result is false.
    bool checkXResolution(int* xStart = nullptr, int* xEnd = nullptr, int* unit = nullptr) const;

    /// \name Settings
    /// Each alone, as by `setSpecParams`; 0 and false at first.
    ///@{
    int sweepStart() const { return m_next.start; }
    int sweepEnd() const { return m_next.end; }
    int sweepSteps() const { return m_next.steps; }
    int sweepDelay() const { return m_next.delay; }
    bool isSweepForwardBackward() const { return m_next.forwardBackward; }
    void setSweepStart(int start) { m_next.start = start; }
    void setSweepEnd(int end) { m_next.end = end; }
    void setSweepSteps(int steps) { m_next.steps = steps; }
    void setSweepDelay(int delay) { m_next.delay = delay; }
    void setSweepForwardBackward(bool on) { m_next.forwardBackward = on; }
    ///@}

    bool isRunning() const { return m_running; }
    /// Raw value of the point sent last.
    int sweepTarget() const { return m_target; }
    /// This field's dialog, open or closed; null until it is opened.
    UEditSpecDlg* dialog() const { return m_dialog; }

public slots:
    /// As `UnitEdit::setValue`; while a sweep runs and `v` (not limited) is the point sent last, it confirms
    /// that point, also from within the `changed` and `sendTel` of that point. The same value again while the
    /// sweep pauses changes nothing. Kept: a point is also confirmed while the user types or a disabled field
    /// averages, though the field does not show it then.
    bool setValue(int v, bool limit = false) override;

    /// Starts the sweep; with settings that cannot be run it acts as `stop`. One that runs starts anew, and
    /// ends with the value from before the first start; so does one that is started after another, before the
    /// program has set or the user entered a value.
    void run();

    /// Ends the sweep, with `changed` of the value before it. Without a sweep only the dialog becomes idle.
    /// Kept: the field shows that value when the program sets it, and nobody waits for that.
    void stop();

    /// `stop`, and closes the dialog. Kept: hides `QWidget::close`.
    void close();

    /// Sends the next point of the sweep that runs; the delay timer calls it.
    void makeStep();

    /// Shows this field's dialog, unless that of another field is open. One that was closed shows the present
    /// settings, and how far the sweep is.
    ///
    /// The dialog is a child of the window that the field is in, and not of the field: who disables the
    /// field for a sweep can still stop it. It is deleted with the field.
    void openSpectroscopy();

signals:
    /// A telegram for the device, to be sent by the owner; `set` is true and `index` 0 in all of them.
    void sendTel(bool set, int addr, int index, int val);

protected:
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    struct Params
    {
        int start = 0;
        int end = 0;
        int steps = 0;
        int delay = 0; ///< ms
        bool forwardBackward = false;

        qint64 points() const { return forwardBackward ? 2 * qint64(steps) : steps; }
    };

    double rawAsDouble(int raw) const;
    void confirmed();

    QPointer<UEditSpecDlg> m_dialog;
    QTimer* m_delayTimer;   ///< single shot: the pause before the next point
    QTimer* m_confirmTimer; ///< single shot: the longest wait for a confirmation
    Params m_next;          ///< of the next run
    Params m_current;       ///< of the present run
    qint64 m_index = 0;     ///< points sent in this run
    int m_target = 0;
    int m_savedValue = 0;
    int m_progress = 0; ///< what the dialog shows
    bool m_running = false;
    bool m_restoring = false; ///< a sweep has ended, and no value was set since
    int m_lastValue = 0;      ///< the field's at that end
    bool m_sending = false;   ///< telegrams are being sent: a confirmation waits until the point is sent
    bool m_confirmed = false; ///< it came
    unsigned m_runs = 0;      ///< counts starts and ends: tells whether a slot ended the sweep
};

/// The dialog of a `UEditSpec`: settings, start and stop of a sweep, and how far it is.
///
/// Not modal. Tab reaches everything; Return is "Start", or the button that has the focus; Escape is "Close".
/// Closing it ends the sweep. Kept: except by the window's own button: then the sweep goes on to its end. It
/// belongs to the field, though it is not its child, and is kept when it is closed.
class VORELUTIL_EXPORT UEditSpecDlg : public QDialog
{
    Q_OBJECT

public:
    /// A closed dialog with the settings of `edit`, empty where none were made. `edit` is not null.
    explicit UEditSpecDlg(UEditSpec* edit);
    ~UEditSpecDlg() override;

    /// The dialog that is open, of whatever field; else null.
    static UEditSpecDlg* _instance;

public slots:
    /// "Start": runs the sweep, as `UEditSpec::run`. The settings cannot be changed while it runs.
    void accept() override;

    /// "Close" and Escape: ends the sweep and closes the dialog.
    void reject() override;

    /// Reads the settings, stores them in the field, and says whether they can be run by enabling "Start".
    ///
    /// Start and end are read as the field reads numbers, the delay in units of 10 ms. A number without a
    /// prefix has the one last used in its text field; an empty text is no number.
    void onParamChanged();

    /// The sweep has ended: the settings can be changed again. "Start" is enabled where they can be run.
    void finish();

    /// How many points are done; ignored beyond the last. Kept: a sweep counts one more, so that the bar is
    /// full when the last point but one is confirmed.
    void setProgress(int points);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    friend UEditSpec;
    void begin(); ///< a sweep has been started
    void showParams();
    void showRaw(QLineEdit* field, char* pf, int raw) const;
    int readRaw(QLineEdit const* field, char* pf, bool* reads) const;
    void resetProgress();
    void showProgress(qint64 points, int done);
    void setRunning(bool running);

    QPointer<UEditSpec> m_edit;
    QLineEdit* m_start;
    QLineEdit* m_end;
    QLineEdit* m_steps;
    QLineEdit* m_delay;
    QCheckBox* m_forwardBackward;
    QPushButton* m_startButton;
    QPushButton* m_stopButton;
    QPushButton* m_closeButton;
    QProgressBar* m_progress;
    char m_startPf = ' '; ///< the prefix last used in the text field
    char m_endPf = ' ';
    bool m_filling = false;  ///< settings are being shown, and not read
    bool m_readable = false; ///< both numbers and both integers converted
};
