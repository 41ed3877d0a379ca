#include "MainWindow.h"

#include "CustMessagebox.h"
#include "InstallTexts.h"
#include "MainController.h"
#include "MaskForm.h"
#include "Paths.h"

#include <QAction>
#include <QDebug>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QTimer>
#include <QUrl>

#include <utility>

namespace Keys = ApplicationSettings;

namespace
{
constexpr int FoundPathWidth = 230; // pixels
constexpr int BalloonTime = 10000;  // milliseconds
// Texts from outside may have any length; so many of their characters are shown.
constexpr int MaxShownPath = 260;
constexpr int MaxShownVersion = 100;

QString agreementLink(const QString &url, const QString &text)
{
    return QStringLiteral("<style> a {text-decoration: none;color: #575d8f;} </style>"
                          "<a href=\"%1\">%2</a>")
        .arg(url, text);
}
} // namespace

MainWindow::MainWindow(const Hosts &hosts, const ManifestSignature::Keys &keys,
                       quint64 lowestSerial, QWidget *parent)
    : BaseWindow(parent), m_hosts(hosts), m_keys(keys), m_lowestSerial(lowestSerial)
{
    m_newversion->hide();
    m_mask = new MaskForm(this);
    m_mask->setMainWidget(this);
    m_installprogressbar->hide();

    m_shanTimer = new QTimer(this);
    m_tab->setCurrentIndex(0);
    m_gongneng_gun->show();
    m_help_gun->hide();
    m_shanTimer->setSingleShot(false);
    // By signature text, as with the links below: both slots are found by the name that the
    // meta-object gives them, which is part of the window's interface.
    connect(m_shanTimer, SIGNAL(timeout()), this, SLOT(OnTimerShanTray()));

    m_autoUpdateTimer = new QTimer(this);
    connect(m_autoUpdateTimer, &QTimer::timeout, this, &MainWindow::OnAutoUpdate);

    setUpLinks();
    connectControls();
    connectController();
    connectFlow();
    m_version->setText(MainController::instance()->GetSelfVersion());
    // Once whoever made the window has shown it.
    QMetaObject::invokeMethod(this, &MainWindow::checkOwnFolders, Qt::QueuedConnection);
}

MainWindow::~MainWindow() = default;

void MainWindow::checkOwnFolders()
{
    const QString folder = Paths::unwritableFolder();
    if (folder.isEmpty())
        return;
    qWarning() << "can't write to the folder" << folder;
    ShowMessage(InstallTexts::notWritable(QDir::toNativeSeparators(folder)));
}

void MainWindow::setUpLinks()
{
    label_11->setText(label_11->text().arg(QStringLiteral(BREKKA_CONTACT_GROUP)));
    m_userprotocol->setText(agreementLink(
        QStringLiteral("http://%1/brekkaGuide.html#/usageProtocol").arg(m_hosts.agreement),
        QStringLiteral("用户协议")));
    m_privacy->setText(
        agreementLink(QStringLiteral("http://%1/privacy/v3/youxi.html").arg(m_hosts.site),
                      QStringLiteral("隐私协议")));
    for (QLabel *link : {m_userprotocol, m_privacy}) {
        link->setOpenExternalLinks(true);
        connect(link, SIGNAL(linkActivated(QString)), this, SLOT(openUrl(QString)));
    }
}

void MainWindow::connectControls()
{
    connect(this, &BaseWindow::SwitchAutoStartUp, this, &MainWindow::OnAutoStartUp);
    connect(m_browsergame, &QPushButton::clicked, this, &MainWindow::OnBrowserGame);
    connect(m_showmessagebox, &QPushButton::clicked, this, &MainWindow::OnShowMessagebox);
    connect(m_showmessage, &QPushButton::clicked, this, &MainWindow::OnShowSystemMessage);
    connect(m_autofind, &QPushButton::clicked, this, &MainWindow::OnAutoScanGame);
    connect(m_installPlugin, &QPushButton::clicked, this, &MainWindow::OnPluginExtractInstall);
    connect(m_uploadreplayopen, &SwitchButton::statusChanged, this,
            &MainWindow::OnUploadReplayopen);
    connect(m_tab, &QTabWidget::currentChanged, this, &MainWindow::currentChanged);
}

void MainWindow::connectController()
{
    MainController *controller = MainController::instance();
    connect(controller, &MainController::OnSettingRefreshed, this, &MainWindow::OnSettingRefreshed);
    connect(controller, &MainController::OnSettingChanged, this, &MainWindow::OnSettingChanged);
    connect(controller, &MainController::OnSettingsNotSaved, this, [this](const QString &folder) {
        // Of a folder that takes nothing at all the start has told.
        if (!Paths::unwritableFolder().isEmpty())
            return;
        m_unseenMessage = InstallTexts::settingsNotSaved(QDir::toNativeSeparators(folder));
        if (isVisible())
            ShowMessage(std::exchange(m_unseenMessage, QString()));
    });
    connect(controller, &MainController::OnpluginVersion, this, &MainWindow::OnPluginVersion);
    connect(controller, &MainController::OnpluginUploadReplayOpen, this,
            &MainWindow::OnPluginUploadReplayOpen);
    connect(controller, &MainController::OnGameFinded, this, &MainWindow::OnGameFinded);
    connect(controller, &MainController::OnpluginSupportGameVersion, this,
            &MainWindow::OnpluginSupportGameVersion);
}

void MainWindow::currentChanged(int index)
{
    m_gongneng_gun->setVisible(index == 0);
    m_help_gun->setVisible(index != 0);
}

void MainWindow::OnBrowserGame()
{
    const QString file =
        QFileDialog::getOpenFileName(this, QStringLiteral("打开游戏安装目录"), m_settings.game,
                                     QStringLiteral("游戏文件 (WorldOfTanks.exe)"));
    if (file.isEmpty())
        return;
    qDebug() << "game install path select::" << file;
    const QString folder = QDir::toNativeSeparators(QFileInfo(file).absolutePath());
    MainController::instance()->WriteSetting(Keys::KeyGame, folder);
    showGamePath(folder);
}

void MainWindow::showGamePath(const QString &path)
{
    m_GamePath->setText(path.left(MaxShownPath));
    m_GamePath->home(false); // a long one begins with what tells it from others
}

void MainWindow::showVersion(QLabel *place, const QString &version)
{
    place->setText(version.left(MaxShownVersion));
}

void MainWindow::OnAutoScanGame()
{
    MainController::instance()->StartGameScanner();
}

void MainWindow::OnGameFinded(QString strPath, EC::ErrorCode ec)
{
    if (ec != EC::SUCCESS || !QFileInfo(strPath).isDir()) {
        ShowMessage(QStringLiteral("没有搜索到游戏客户端路径"));
        qDebug() << "not found game";
        return;
    }
    const QFontMetrics metrics(m_updatedate->font());
    const QString shown = metrics.elidedText(strPath, Qt::ElideMiddle, FoundPathWidth);
    QString url = strPath;
    url.replace(QLatin1Char('%'), QLatin1String("%25"))
        .replace(QLatin1Char('#'), QLatin1String("%23"));
    const QString question =
        QStringLiteral("<style> a {text-decoration: none;color: #505287;} </style> "
                       "发现<a href=\"File:///%1\">%2</a>，是否设置为游戏路径?")
            .arg(url.toHtmlEscaped(), shown.toHtmlEscaped());
    if (!isQuestionAccepted(question))
        return;
    qDebug() << "set game path";
    showGamePath(strPath);
    m_settings.game = strPath;
    MainController::instance()->WriteSetting(Keys::KeyGame, strPath);
    qDebug() << "UpdatePlugin begin on game finded";
    UpdatePlugin(false);
}

void MainWindow::OnUploadReplayopen(bool bOpen)
{
    showReplayState(bOpen);
    MainController::instance()->WriteSetting(Keys::KeyReplayUpload, bOpen);
    MainController::instance()->StartWritePluginConfigData(true, true, bOpen, m_settings.game);
}

void MainWindow::OnPluginUploadReplayOpen(bool bOpen)
{
    const bool stored = m_settings.pluginloaderplayopen;
    if (bOpen != stored)
        MainController::instance()->StartWritePluginConfigData(true, true, stored, m_settings.game);
    m_uploadreplayopen->setChecked(stored);
}

void MainWindow::showReplayState(bool open)
{
    m_swtichstatus->setText(open ? QStringLiteral("开启") : QStringLiteral("关闭"));
}

void MainWindow::OnPluginVersion(QString strVersion)
{
    qDebug() << "plugin version local match" << strVersion;
    showVersion(m_pluginver, strVersion);
}

void MainWindow::OnpluginSupportGameVersion(QString strVersion)
{
    qDebug() << "OnpluginSupportGameVersion" << strVersion;
    showVersion(m_pGameSupportVersion, strVersion);
    MainController::instance()->WriteSetting(Keys::KeySupportGameVersion, strVersion);
}

void MainWindow::OnAutoStartUp(bool bStartUp)
{
    // With no task left to remove it is off already, as after a move to another computer.
    if (MainController::SetAutoRun(bStartUp) || !bStartUp)
        MainController::instance()->WriteSetting(Keys::KeyAutoRun, bStartUp);
    else
        autoStartAction()->setChecked(!bStartUp);
}

void MainWindow::OnAutoRunChanged(bool bOpen)
{
    MainController::instance()->WriteSetting(Keys::KeyAutoRun, bOpen);
}

void MainWindow::openUrl(QString url)
{
    qDebug() << "open url" << url;
    QDesktopServices::openUrl(QUrl(url));
}

void MainWindow::OnShowMessagebox()
{
    CustMessagebox::showMessageBox(this, m_mask, QStringLiteral("ss"), QStringLiteral("rrrr"),
                                   QDialogButtonBox::Ok, QDialogButtonBox::Ok);
}

void MainWindow::OnShowSystemMessage()
{
    trayIcon()->showMessage(QStringLiteral("Brekka助手"), QStringLiteral("这是一条测试消息"),
                            QIcon(QStringLiteral(":/images/icon.png")), BalloonTime);
}

void MainWindow::ShowMessage(const QString &text)
{
    // One that nobody is there to close must not become a pile.
    if (!isVisible() || m_shownMessages.contains(text))
        return;
    m_shownMessages += text;
    const auto show = [this, text] {
        CustMessagebox::showMessageBox(this, m_mask, QString(), text, QDialogButtonBox::Ok,
                                       QDialogButtonBox::Ok);
        m_shownMessages.removeOne(text);
    };
    QMetaObject::invokeMethod(this, show, Qt::QueuedConnection);
}

bool MainWindow::isQuestionAccepted(const QString &text)
{
    if (!isVisible())
        return false;
    return CustMessagebox::showMessageBox(this, m_mask, QString(), text,
                                          QDialogButtonBox::Yes | QDialogButtonBox::No,
                                          QDialogButtonBox::Yes) == QDialogButtonBox::Yes;
}

void MainWindow::setAskedFor(bool isAskedFor)
{
    m_isAskedFor = isAskedFor;
    m_installPlugin->setBusy(isAskedFor);
}

void MainWindow::showEvent(QShowEvent *event)
{
    StopTrayShan();
    BaseWindow::showEvent(event);
    if (!m_unseenMessage.isEmpty())
        ShowMessage(std::exchange(m_unseenMessage, QString()));
}
