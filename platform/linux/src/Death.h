// Links from binders to those who want to hear of their death.
#pragma once

namespace standin {

class Connection;
struct RemoteBinder;

// The connection is closed for good: everybody who is linked to a binder behind it is told, on the pool.
void announceDeath(const Connection& connection);
// The proxy ends: its links end without a word.
void unlinkAll(const RemoteBinder& binder);

}  // namespace standin
