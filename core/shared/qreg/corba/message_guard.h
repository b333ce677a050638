#pragma once

namespace qreg::corba {

/// Puts right what omniORB (4.2.5, 4.3.3) does wrong with two kinds of messages, by its own table of what each version
/// of GIOP does. To be called after ORB_init, before the first endpoint; again does nothing.
///
/// - A request that names its object by a whole profile or reference, instead of by its key, is dispatched again and
///   again: one packet of 100 bytes takes a core for ever, as a oneway even when its sender has gone. Parts of a broken
///   one are never freed. Its connection is closed instead; clients name the registry by its key, as every ORB does
///   that was not asked for more.
/// - When a request's connection breaks between the end of its arguments and the end of its message, all that is held
///   of the request is kept for ever, 9 KiB, for a reply that never comes. It is freed.
void InstallMessageGuards();

}  // namespace qreg::corba
