// Prints the meta-objects of all classes as text. Connections by name, queued calls and
// introspection depend on them, including the parameter names.
#include "core/KovaNamedPipe.h"
#include "simplePlayer/DataSimplePlayer.h"
#include "simplePlayer/DataSimplePlayer_p.h"
#include "simplePlayer/StreamSimplePlayer.h"
#include "simplePlayer/StreamSimplePlayer_p.h"
#include "simplePlayer/UriSimplePlayer.h"
#include "simplePlayer/UriSimplePlayer_p.h"

#include <QtCore/QMetaClassInfo>
#include <QtCore/QMetaEnum>
#include <QtCore/QMetaMethod>
#include <QtCore/QMetaObject>
#include <QtCore/QMetaProperty>
#include <QtCore/QTextStream>

namespace {

QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

const char* text(QMetaMethod::Access access)
{
    switch (access) {
    case QMetaMethod::Private:
        return "private";
    case QMetaMethod::Protected:
        return "protected";
    case QMetaMethod::Public:
        return "public";
    }
    return "?";
}

const char* text(QMetaMethod::MethodType type)
{
    switch (type) {
    case QMetaMethod::Method:
        return "method";
    case QMetaMethod::Signal:
        return "signal";
    case QMetaMethod::Slot:
        return "slot";
    case QMetaMethod::Constructor:
        return "constructor";
    }
    return "?";
}

/// "0  public signal void f(int count)"
void print(int index, const QMetaMethod& method)
{
    const QList<QByteArray> types = method.parameterTypes();
    const QList<QByteArray> names = method.parameterNames();
    QByteArrayList parameters;
    for (int i = 0; i < types.size(); ++i) {
        parameters += types.at(i) + ' ' + names.at(i);
    }
    out() << "  " << index << "  " << text(method.access()) << ' ' << text(method.methodType())
          << ' ' << method.typeName() << ' ' << method.name() << '(' << parameters.join(", ")
          << ")\n";
}

void print(const QMetaEnum& enumeration)
{
    out() << "  enum " << enumeration.name() << (enumeration.isFlag() ? " (flags)" : "") << '\n';
    for (int i = 0; i < enumeration.keyCount(); ++i) {
        out() << "    " << enumeration.key(i) << " = " << enumeration.value(i) << '\n';
    }
}

void print(const QMetaProperty& property)
{
    out() << "  property " << property.typeName() << ' ' << property.name()
          << (property.isReadable() ? " readable" : "")
          << (property.isWritable() ? " writable" : "")
          << (property.hasNotifySignal() ? " notify " : "") << property.notifySignal().name()
          << '\n';
}

/// Indices count from the first method of the class itself, because Qt determines those of its base
/// classes.
void print(const char* name, const QMetaObject& meta)
{
    out() << "\nclass " << name << ": ";
    if (qstrcmp(name, meta.className()) != 0) {
        out() << "no meta-object but that of " << meta.className() << '\n';
        return;
    }
    out() << "super class " << meta.superClass()->className() << '\n';
    for (int i = 0; i < meta.constructorCount(); ++i) {
        print(i, meta.constructor(i));
    }
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        print(i - meta.methodOffset(), meta.method(i));
    }
    for (int i = meta.enumeratorOffset(); i < meta.enumeratorCount(); ++i) {
        print(meta.enumerator(i));
    }
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
        print(meta.property(i));
    }
    for (int i = meta.classInfoOffset(); i < meta.classInfoCount(); ++i) {
        out() << "  class info " << meta.classInfo(i).name() << ": " << meta.classInfo(i).value()
              << '\n';
    }
}

} // namespace

#define PRINT(name) print(#name, name::staticMetaObject)

int main()
{
    out() << "Meta-objects, made by scripts/abi --update. docs/binary-interface.md explains it.\n";
    out() << "\n== public classes ==\n";
    PRINT(SimplePlayer);
    PRINT(FakePlayer);
    PRINT(UriSimplePlayer);
    PRINT(DataSimplePlayer);
    PRINT(StreamSimplePlayer);
    PRINT(KovaNamedPipe);
    out() << "\n== engines, hidden ==\n";
    PRINT(SimplePlayerImpl);
    PRINT(UriSimplePlayerImpl);
    PRINT(DataSimplePlayerImpl);
    PRINT(StreamSimplePlayerImpl);
    return 0;
}
