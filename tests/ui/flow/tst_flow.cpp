#include "FailurePolicy.h"
#include "PackageBackOff.h"

#include <QTest>

using FailurePolicy::Failure;
using FailurePolicy::Step;

Q_DECLARE_METATYPE(Failure)
Q_DECLARE_METATYPE(Step)
Q_DECLARE_METATYPE(FailurePolicy::Run)

/// The decisions of the update flow, each as a table.
class tst_Flow : public QObject
{
    Q_OBJECT
private slots:
    void failure_data();
    void failure();
    void backOff();
};

void tst_Flow::failure_data()
{
    QTest::addColumn<Failure>("failure");
    QTest::addColumn<FailurePolicy::Run>("run");
    QTest::addColumn<Step>("step");
    const auto row = [](const char *name, Failure failure, const FailurePolicy::Run &run,
                        Step step) { QTest::newRow(name) << failure << run << step; };
    const bool user = false, automatic = true;

    row("wrong package", Failure::PackageWrong, {automatic, 4, 3}, Step::FetchAnew);
    row("wrong package, user", Failure::PackageWrong, {user, 0, 0}, Step::FetchAnew);
    row("wrong packages", Failure::PackageWrong, {automatic, 0, 4}, Step::GiveUp);
    row("wrong packages, user", Failure::PackageWrong, {user, 0, 4}, Step::GiveUp);
    row("not unpacked", Failure::ExtractionFailed, {automatic, 3, 4}, Step::Retry);
    row("not unpacked, user", Failure::ExtractionFailed, {user, 4, 0}, Step::Report);
    row("not unpacked again", Failure::ExtractionFailed, {automatic, 4, 0}, Step::GiveUp);
    row("file missing", Failure::FileMissing, {automatic, 0, 0}, Step::Retry);
    row("file missing, user", Failure::FileMissing, {user, 0, 0}, Step::Report);
    row("file missing again", Failure::FileMissing, {automatic, 4, 0}, Step::GiveUp);
    row("file wrong", Failure::FileWrong, {automatic, 0, 0}, Step::ShowBadge);
    row("file wrong again", Failure::FileWrong, {automatic, 4, 4}, Step::ShowBadge);
    row("file wrong, user", Failure::FileWrong, {user, 0, 0}, Step::Report);
}

void tst_Flow::failure()
{
    QFETCH(Failure, failure);
    QFETCH(FailurePolicy::Run, run);
    QTEST(FailurePolicy::after(failure, run), "step");
}

/// How many checks pass between two tries of a package that stays bad.
void tst_Flow::backOff()
{
    PackageBackOff backOff;
    QVERIFY(!backOff.holds(QString()));
    for (const int pause : {1, 2, 4, 8, 12, 12}) {
        backOff.fail("bad");
        int passed = 0;
        for (backOff.tick(); backOff.holds("bad"); backOff.tick())
            ++passed;
        QCOMPARE(passed, pause);
    }
    backOff.fail("bad");
    QVERIFY(!backOff.holds("other"));
    backOff.fail("other"); // a row of its own
    backOff.tick();
    QVERIFY(backOff.holds("other"));
    backOff.tick();
    QVERIFY(!backOff.holds("other"));
    backOff.fail("other");
    backOff.forget();
    QVERIFY(!backOff.holds("other"));
}

QTEST_APPLESS_MAIN(tst_Flow)

#include "tst_flow.moc"
