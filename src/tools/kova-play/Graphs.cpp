#include "Graphs.h"

#include "Console.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>

namespace {

/// @return why the picture could not be made; empty when it was
QString makeSvg(const QString& program, const QString& dotFile)
{
    const QString svgFile = dotFile.chopped(4) + ".svg";
    QProcess dot;
    dot.start(program, {"-Tsvg", "-o", svgFile, dotFile});
    if (!dot.waitForFinished(-1)) {
        return dot.errorString();
    }
    if (dot.exitStatus() != QProcess::NormalExit || dot.exitCode() != 0) {
        return QString::fromLocal8Bit(dot.readAllStandardError()).trimmed();
    }
    return QString();
}

} // namespace

Graphs::Graphs(const QString& folder) : dir(QDir(folder).absolutePath())
{
}

QString Graphs::prepare()
{
    if (!dir.mkpath(".") || !QFileInfo(dir.path()).isWritable()) {
        return QString("'%1' cannot be made or written: name another folder").arg(dir.path());
    }
    formerFiles = dotFiles();
    qputenv("GST_DEBUG_DUMP_DOT_DIR", QFile::encodeName(dir.path()));
    return QString();
}

QMap<QString, QDateTime> Graphs::dotFiles() const
{
    QMap<QString, QDateTime> files;
    for (const QFileInfo& file : dir.entryInfoList({"*.dot"}, QDir::Files)) {
        files.insert(file.absoluteFilePath(), file.lastModified());
    }
    return files;
}

QStringList Graphs::newDotFiles() const
{
    QStringList files;
    const QMap<QString, QDateTime> all = dotFiles();
    for (auto file = all.begin(); file != all.end(); ++file) {
        // A run may write over files of an earlier one: their names hold the time since its start.
        if (formerFiles.value(file.key()) != file.value()) {
            files.append(file.key());
        }
    }
    return files;
}

void Graphs::finish(Console& console) const
{
    const QStringList files = newDotFiles();
    if (files.isEmpty()) {
        console.printMessage("no pipeline was drawn: nothing was played");
        return;
    }
    const QString program = QStandardPaths::findExecutable("dot");
    if (program.isEmpty()) {
        console.printMessage(QString("%1 graphs in '%2', as .dot files only: for pictures, apt-get "
                                     "install graphviz, then dot -Tsvg -O FILE")
                                 .arg(files.size())
                                 .arg(dir.path()));
        return;
    }
    for (const QString& file : files) {
        const QString problem = makeSvg(program, file);
        if (!problem.isEmpty()) {
            console.printMessage(QString("dot made no picture of '%1': %2").arg(file, problem));
            return;
        }
    }
    console.printMessage(
        QString("%1 graphs in '%2', as .dot and .svg files").arg(files.size()).arg(dir.path()));
}
