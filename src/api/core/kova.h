#ifndef KOVA_H
#define KOVA_H

#include <QtCore/QList>
#include <QtCore/QMetaMethod>
#include <QtCore/QMetaType>
#include <QtCore/QObject>

/// The framework's core helpers.
namespace kova {

/// Whether every parameter of `signal` can be copied into a queued call: a pointer (its type name
/// ends in "*") or a type known to QMetaType. A direct connection is never queued and always
/// passes.
template <typename Signal, typename Slot>
bool verifyConnectionSignalParameters(
    const typename QtPrivate::FunctionPointer<Signal>::Object* /*sender*/, Signal signal,
    const typename QtPrivate::FunctionPointer<Slot>::Object* /*receiver*/, Qt::ConnectionType type)
{
    if ((type & ~Qt::UniqueConnection) == Qt::DirectConnection) {
        return true;
    }
    // The meta-object does not list the private tag of a signal (QPrivateSignal).
    const QMetaMethod method = QMetaMethod::fromSignal(signal);
    const QList<QByteArray> names = method.parameterTypes();
    for (int i = 0; i < names.size(); ++i) {
        if (!names.at(i).endsWith('*') && method.parameterType(i) == QMetaType::UnknownType) {
            return false;
        }
    }
    return true;
}

/// Connects a signal to a slot, both given as member-function pointers. If the connection cannot
/// work, this is a programming error, and the process is aborted with a message, also in release
/// builds (Q_ASSERT would be removed there).
///
/// There are two assertions: "verifyConnectionSignalParameters(sender, signal, receiver, type)"
/// requires that a connection that may be queued can copy the signal's parameters; "connection"
/// requires that Qt accepted the connection.
///
/// This function is thread-safe.
///
/// @param sender    the emitting object; not owned
/// @param signal    its signal, which may have a private tag like QSocketNotifier::activated
/// @param receiver  the receiving object; not owned. The connection ends with either object
/// @param slot      a member function of the receiver; need not be declared as a slot
/// @param type      as for QObject::connect; may include Qt::UniqueConnection
/// @return the valid connection
template <typename Signal, typename Slot>
QMetaObject::Connection connect(const typename QtPrivate::FunctionPointer<Signal>::Object* sender,
                                Signal signal,
                                const typename QtPrivate::FunctionPointer<Slot>::Object* receiver,
                                Slot slot, Qt::ConnectionType type)
{
    if (!verifyConnectionSignalParameters<Signal, Slot>(sender, signal, receiver, type)) {
        qt_assert("verifyConnectionSignalParameters(sender, signal, receiver, type)", __FILE__,
                  __LINE__);
    }
    QMetaObject::Connection connection = QObject::connect(sender, signal, receiver, slot, type);
    if (!connection) {
        qt_assert("connection", __FILE__, __LINE__);
    }
    return connection;
}

} // namespace kova

#endif
