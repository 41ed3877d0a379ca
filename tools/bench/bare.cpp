// What any program with Qt costs to start: the measure for what ours adds.

#include <QApplication>

int main(int argc, char *argv[])
{
    const QApplication app(argc, argv);
    return 0;
}
