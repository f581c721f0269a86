#include "mainwindow.h"

#include "apps/controller/controllerlink.h"
#include "console.h"
#include "dialogs.h"
#include "elidedlabel.h"
#include "firmwarepanel.h"
#include "groupspanel.h"
#include "imageplot.h"
#include "logview.h"
#include "profileplot.h"
#include "scanpanel.h"
#include "theme.h"
#include "timestamppanel.h"
#include "valuepanel.h"

#include <new>
#include <QCloseEvent>
#include <QComboBox>
#include <QCoreApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QSpinBox>
#include <QSplitter>
#include <QStatusBar>
#include <QTabWidget>
#include <QVBoxLayout>
#include <QWindow>
#include <vorelutil/frames/framebuffer.h>
#include <vorelutil/widgets/unitedit.h>

namespace bench {

namespace {

constexpr int textMilliseconds = 200;
constexpr int controlsWidth = 268;

QLabel* makeHeading(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

QWidget* withHeading(const QString& heading, QWidget* content, QWidget* parent)
{
    auto* panel = new QWidget(parent);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(3);
    layout->addWidget(makeHeading(heading, panel));
    layout->addWidget(content, 1);
    return panel;
}

} // namespace

MainWindow::MainWindow(Console* console, Simulator* simulator, QWidget* parent)
    : QMainWindow(parent)
    , m_console(console)
    , m_gate([this] { repaintPlots(); })
{
    setWindowTitle(tr("vorelbench"));
    // Made in the order in which Tab goes.
    QWidget* const linkRow = makeLinkRow();
    m_pages = new QTabWidget(this);
    QWidget* const scanPage = makeScanPage();
    m_values = new ValuePanel(console, simulator, this);
    m_timeStamps = new TimeStampPanel(console, m_values->selectOnFocus(), this);
    m_dataGroups = new GroupsPanel(this);
    m_firmware = new FirmwarePanel(console, this);
    m_log = new LogView(this);
    m_pages->addTab(scanPage, tr("Scan"));
    m_pages->addTab(m_values, tr("Values"));
    m_pages->addTab(m_timeStamps, tr("Time stamps"));
    m_pages->addTab(m_firmware, tr("Firmware"));
    m_pages->addTab(m_dataGroups, tr("Data groups"));
    auto* parts = new QSplitter(Qt::Vertical, this);
    parts->addWidget(m_pages);
    parts->addWidget(
        withHeading(tr("Trace log without samples, packets, flash blocks, read-back, counter (see its file)"),
                    m_log, parts));
    parts->setStretchFactor(0, 4);
    parts->setStretchFactor(1, 1);
    parts->setSizes({570, 130});

    auto* centre = new QWidget(this);
    auto* layout = new QVBoxLayout(centre);
    layout->addWidget(linkRow);
    layout->addWidget(parts, 1);
    setCentralWidget(centre);
    makeStatusBar();
    connectSignals();
    setMinimumSize(900, 640); // stated, so that changing texts do not change it
    resize(1280, 800);
    showVoidLegend(false);
    updateState();
    updatePasses();
}

MainWindow::~MainWindow() = default;

QWidget* MainWindow::makeScanPage()
{
    m_image = new ImagePlot(this);
    m_line = new ProfilePlot(ProfilePlot::Line, this);
    m_stream = new ProfilePlot(ProfilePlot::Stream, this);
    m_scanPanel = new ScanPanel(this);
    auto* profiles = new QSplitter(Qt::Vertical, this);
    profiles->addWidget(withHeading(tr("Current line"), m_line, profiles));
    profiles->addWidget(withHeading(tr("Stream"), m_stream, profiles));
    auto* plots = new QSplitter(Qt::Horizontal, this);
    plots->addWidget(makeImagePanel());
    plots->addWidget(profiles);
    plots->setStretchFactor(0, 3);
    plots->setStretchFactor(1, 2);
    plots->setSizes({670, 300});

    auto* page = new QWidget(this);
    auto* controls = new QVBoxLayout;
    for (QWidget* group : {static_cast<QWidget*>(m_scanPanel), makeSaveGroup()}) {
        group->setFixedWidth(controlsWidth);
        controls->addWidget(group);
    }
    controls->addStretch(1);
    auto* layout = new QHBoxLayout(page);
    layout->addLayout(controls);
    layout->addWidget(plots, 1);
    return page;
}

QWidget* MainWindow::makeLinkRow()
{
    auto* row = new QWidget(this);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    m_host = new QLineEdit(QStringLiteral("127.0.0.1"), row);
    m_host->setMaximumWidth(220);
    m_port = new QSpinBox(row);
    m_port->setRange(1, 65535);
    m_connect = new QPushButton(tr("&Connect"), row);
    for (const auto& [text, field] : {qMakePair(tr("&Host"), static_cast<QWidget*>(m_host)),
                                      qMakePair(tr("Por&t"), static_cast<QWidget*>(m_port))}) {
        auto* label = new QLabel(text, row);
        label->setBuddy(field);
        layout->addWidget(label);
        layout->addWidget(field);
    }
    layout->addWidget(m_connect);
    layout->addStretch(1);
    connect(m_connect, &QPushButton::clicked, this, &MainWindow::toggleLink);
    return row;
}

QWidget* MainWindow::makeSaveGroup()
{
    auto* group = new QGroupBox(tr("Save"), this);
    group->setToolTip(tr("The last whole frame is saved, or what there is of the first one"));
    auto* layout = new QVBoxLayout(group);
    struct Entry
    {
        QString text;
        Snapshot snapshot;
        ScanKind kind;
        QString suggestion;
        QString filter;
    };
    const Entry entries[] = {
        {tr("Area, text..."), Snapshot::Text, ScanKind::Area, QStringLiteral("area.asc"),
         tr("Text snapshots (*.asc)")},
        {tr("Area, binary..."), Snapshot::Binary, ScanKind::Area, QStringLiteral("area.bcr"),
         tr("Binary snapshots (*.bcr)")},
        {tr("Line..."), Snapshot::Line, ScanKind::Line, QStringLiteral("line.csv"),
         tr("Line exports (*.csv)")},
        {tr("Stream..."), Snapshot::Line, ScanKind::Stream, QStringLiteral("stream.csv"),
         tr("Line exports (*.csv)")},
    };
    for (const Entry& entry : entries) {
        auto* button = new QPushButton(entry.text, group);
        layout->addWidget(button);
        connect(button, &QPushButton::clicked, this,
                [this, entry] { saveAs(entry.snapshot, entry.kind, entry.suggestion, entry.filter); });
    }
    m_logButton = new QPushButton(group);
    layout->addWidget(m_logButton);
    connect(m_logButton, &QPushButton::clicked, this, &MainWindow::toggleLog);
    return group;
}

QWidget* MainWindow::makeImagePanel()
{
    auto* panel = new QWidget(this);
    auto* header = new QHBoxLayout;
    m_pass = new QComboBox(panel);
    m_pass->setAccessibleName(tr("Pass that the image shows"));
    m_imageText = new QLabel(panel);
    m_voidSample = new QLabel(panel);
    m_voidText = new QLabel(tr("void"), panel);
    header->addWidget(makeHeading(tr("Area"), panel));
    header->addWidget(m_pass);
    header->addWidget(m_imageText, 1);
    header->addWidget(m_voidSample);
    header->addWidget(m_voidText);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(3);
    layout->addLayout(header);
    layout->addWidget(m_image, 1);
    connect(m_pass, QOverload<int>::of(&QComboBox::activated), this, [this] { m_gate.request(); });
    return panel;
}

void MainWindow::makeStatusBar()
{
    m_linkText = new QLabel(this);
    m_scanText = new QLabel(this);
    m_message = new ElidedLabel(this);
    for (QLabel* label : {m_linkText, m_scanText, m_message}) {
        label->setTextFormat(Qt::PlainText);
        label->setMinimumWidth(1); // a long text is cut, and does not widen the window
    }
    for (QLabel* label : {m_linkText, m_scanText}) label->setContentsMargins(4, 0, 18, 0);
    statusBar()->addWidget(m_linkText);
    statusBar()->addWidget(m_scanText);
    statusBar()->addWidget(m_message, 1);
}

void MainWindow::connectSignals()
{
    Scan* scan = m_console->scan();
    connect(m_scanPanel, &ScanPanel::startRequested, m_console, &Console::startScan);
    connect(m_scanPanel, &ScanPanel::stopRequested, m_console, &Console::stopScan);
    connect(m_console, &Console::stillAcquiringChanged, this, &MainWindow::updateState);
    connect(scan, &Scan::samplesAdded, &m_gate, &RepaintGate::request);
    connect(scan, &Scan::stateChanged, this, [this] {
        updateState();
        updatePasses();
        m_gate.request();
    });
    connect(m_console->link(), &ControllerLink::stateChanged, this, [this](ControllerLink::State state) {
        updateState();
        if (m_closing && state == ControllerLink::Off) close();
    });
    connect(m_console, &Console::readyChanged, this, &MainWindow::updateState);
    connect(m_console, &Console::message, this, &MainWindow::showMessage);
    connect(m_console, &Console::overcome, this, [this](const QString& text) {
        if (m_message->text() == text) showMessage(QString(), false);
    });
    connect(m_pages, &QTabWidget::currentChanged, this, [this] {
        if (m_pages->currentWidget() == m_values) m_values->field(controller::outputVoltage)->setFocus();
    });
    connect(&m_textTimer, &QTimer::timeout, this, &MainWindow::updateScanText);
    m_textTimer.start(textMilliseconds);
}

void MainWindow::setAddress(const QString& host, int port)
{
    m_host->setText(host);
    m_port->setValue(port);
}

void MainWindow::setScanSettings(const ScanSettings& settings)
{
    m_scanPanel->setSettings(settings);
}

void MainWindow::followLog(const QString& path)
{
    m_log->follow(path);
}

void MainWindow::showPage(Page page)
{
    m_pages->setCurrentIndex(static_cast<int>(page)); // in their order
}

void MainWindow::refreshNow()
{
    m_log->readMore();
    updateState();
    updatePasses();
    m_timeStamps->refreshNow();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest); // room for new texts
    m_gate.repaintNow();
}

void MainWindow::showEvent(QShowEvent* event)
{
    QMainWindow::showEvent(event);
    if (windowHandle() != nullptr && windowHandle()->screen() != nullptr)
        m_gate.setRefreshRate(windowHandle()->screen()->refreshRate());
    m_voidSample->setPixmap(m_image->voidSample());
}

void MainWindow::changeEvent(QEvent* event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && m_voidSample != nullptr)
        m_voidSample->setPixmap(m_image->voidSample());
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_console->isLogging()) m_console->stopLog();
    m_console->stopEventLog();
    m_console->finishEventLog();
    m_closing = true;
    m_console->disconnectFrom();
    m_closing = m_console->link()->state() != ControllerLink::Off;
    event->setAccepted(!m_closing);
}

void MainWindow::showVoidLegend(bool show)
{
    m_voidSample->setVisible(show);
    m_voidText->setVisible(show);
}

// Only what the running scan changes; both images and the line come from an area.
void MainWindow::repaintPlots()
{
    try {
        const Console& console = *m_console;
        const ScanKind kind = console.scan()->settings().kind;
        if (kind == ScanKind::Area) {
            const bool forward = m_pass->currentData().toBool();
            m_image->showFrames(console.lastFrame(kind), console.runningFrame(kind), forward);
            showVoidLegend(m_image->image().hasVoid());
        }
        ProfilePlot* profile = kind == ScanKind::Stream ? m_stream : m_line;
        profile->showFrame(console.runningFrame(kind), console.lastFrame(kind).get());
    } catch (const std::bad_alloc&) {
        showMessage(tr("There is no memory for the picture"), true);
    }
}

void MainWindow::updateState()
{
    const ControllerLink::State link = m_console->link()->state();
    m_linkText->setText(tr("Link: %1").arg(m_console->link()->stateText()));
    const bool off = link == ControllerLink::Off;
    m_connect->setText(off ? tr("&Connect") : tr("Dis&connect"));
    m_host->setEnabled(off);
    m_port->setEnabled(off);
    m_scanPanel->setState(m_console->isReady(), !m_console->scan()->isIdle(), m_console->canStop());
    updateScanText();
}

void MainWindow::updateScanText()
{
    const Scan& scan = *m_console->scan();
    const ScanSettings& settings = scan.settings();
    QString text;
    switch (scan.state()) {
    case Scan::State::Idle:
        text = tr("no scan");
        break;
    case Scan::State::Preparing:
        text = tr("preparing");
        break;
    case Scan::State::Running:
        text = tr("running");
        break;
    case Scan::State::RestartStopping:
    case Scan::State::RestartPlacing:
        text = tr("returning to low positions");
        break;
    case Scan::State::Stopping:
        text = tr("stopping");
        break;
    }
    text = tr("Scan: %1, %2 whole frames").arg(text).arg(scan.frameCount());
    if (scan.gapCount() + scan.refusedCount() > 0)
        text += tr(", %1 faults in the data").arg(scan.gapCount() + scan.refusedCount());
    m_scanText->setText(text);

    const FrameBuffer* area = m_console->runningFrame(ScanKind::Area);
    if (area != nullptr && area->frameSize() > 0)
        m_imageText->setText(tr("%1 x %2, %3 %")
                                 .arg(settings.xPixels)
                                 .arg(settings.yPixels)
                                 .arg(100ULL * area->filled() / area->frameSize()));
    m_logButton->setText(m_console->isLogging() ? tr("Stop the log (%1)").arg(m_console->loggedCount())
                                                : tr("Log samples..."));
}

// The passes that the area scan has; a choice that still exists is kept.
void MainWindow::updatePasses()
{
    const ScanSettings& settings = m_console->scan()->settings();
    if (settings.kind != ScanKind::Area) return;
    const bool forward = settings.mode != FrameBuffer::Backward;
    const bool backward = settings.mode != FrameBuffer::Forward;
    if (m_pass->count() == int(forward) + int(backward) && m_pass->findData(forward) >= 0) return;
    const bool wasForward = m_pass->count() == 0 || m_pass->currentData().toBool();
    m_pass->clear();
    if (forward) m_pass->addItem(tr("forward"), true);
    if (backward) m_pass->addItem(tr("backward"), false);
    m_pass->setCurrentIndex(std::max(0, m_pass->findData(wasForward)));
    m_pass->setEnabled(m_pass->count() > 1);
}

void MainWindow::showMessage(const QString& text, bool isProblem)
{
    m_message->setText(text);
    m_message->setToolTip(plainToolTip(text));
    QPalette palette = statusBar()->palette();
    if (isProblem) palette.setColor(QPalette::WindowText, problemColour(palette));
    m_message->setPalette(palette);
}

void MainWindow::toggleLink()
{
    if (m_console->link()->state() == ControllerLink::Off)
        m_console->connectTo(m_host->text(), m_port->value());
    else
        m_console->disconnectFrom();
    updateState();
}

void MainWindow::toggleLog()
{
    if (m_console->isLogging()) {
        showFailure(this, m_console->stopLog());
        updateScanText();
        return;
    }
    askForFile(this, tr("Log samples"), QStringLiteral("log.csv"), tr("Running logs (*.csv)"),
               [this](const QString& path) {
                   showFailure(this, m_console->startLog(path));
                   updateScanText();
               });
}

void MainWindow::saveAs(Snapshot snapshot, ScanKind kind, const QString& suggestion, const QString& filter)
{
    askForFile(this, tr("Save"), suggestion, filter, [this, snapshot, kind](const QString& path) {
        const bool forward = m_pass->count() == 0 || m_pass->currentData().toBool();
        showFailure(this, m_console->save(snapshot, kind, path, forward));
    });
}

} // namespace bench
