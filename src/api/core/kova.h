#ifndef KOVA_H
#define KOVA_H

#include <QtCore/QList>
#include <QtCore/QMetaMethod>
#include <QtCore/QMetaType>
#include <QtCore/QObject>

/// The framework's core helpers.
namespace kova {

/// Whether every parameter of `signal` can be copied into a queued call: a pointer (its type
/// name ends in "*") or a type known to QMetaType. A connection that is never queued needs none
/// of this and always passes.
template <typename Signal, typename Slot>
bool verifyConnectionSignalParameters(
    const typename QtPrivate::FunctionPointer<Signal>::Object* /*sender*/, Signal signal,
    const typename QtPrivate::FunctionPointer<Slot>::Object* /*receiver*/, Qt::ConnectionType type)
{
    if ((type & ~Qt::UniqueConnection) == Qt::DirectConnection) {
        return true;
    }
    // The meta-object leaves out a signal's private tag (QPrivateSignal), as it must be here.
    const QMetaMethod method = QMetaMethod::fromSignal(signal);
    const QList<QByteArray> names = method.parameterTypes();
    for (int i = 0; i < names.size(); ++i) {
        if (!names.at(i).endsWith('*') && method.parameterType(i) == QMetaType::UnknownType) {
            return false;
        }
    }
    return true;
}

/// Connects a signal to a slot, both given as member-function pointers, and aborts the process
/// with a message when the connection could not work. What it finds are programming errors:
/// it does so in release builds too (Q_ASSERT would vanish there).
///
/// Two assertions are made: "verifyConnectionSignalParameters(sender, signal, receiver, type)",
/// that a connection that may be queued can copy the signal's parameters, and "connection",
/// that Qt accepted the connection.
///
/// @param sender    the object that emits; not owned
/// @param signal    its signal, also one with a private tag such as QSocketNotifier::activated
/// @param receiver  the object that receives; not owned; the connection ends with either object
/// @param slot      its member function; need not be declared a slot
/// @param type      as for QObject::connect; Qt::UniqueConnection may be added
/// @return the valid connection
///
/// May be called from any thread.
template <typename Signal, typename Slot>
QMetaObject::Connection connect(const typename QtPrivate::FunctionPointer<Signal>::Object* sender,
                                Signal signal,
                                const typename QtPrivate::FunctionPointer<Slot>::Object* receiver,
                                Slot slot, Qt::ConnectionType type)
{
    // GCOVR_EXCL_START: what aborts leaves no counts
    if (!verifyConnectionSignalParameters<Signal, Slot>(sender, signal, receiver, type)) {
        qt_assert("verifyConnectionSignalParameters(sender, signal, receiver, type)", __FILE__,
                  __LINE__);
    }
    // GCOVR_EXCL_STOP
    QMetaObject::Connection connection = QObject::connect(sender, signal, receiver, slot, type);
    // GCOVR_EXCL_START: as above
    if (!connection) {
        qt_assert("connection", __FILE__, __LINE__);
    }
    // GCOVR_EXCL_STOP
    return connection;
}

} // namespace kova

#endif
