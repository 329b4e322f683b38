#include "platform/directory/connect_deadline.h"

#include <lber.h>
#include <poll.h>

#include <cerrno>

#include "platform/directory/ldap_library.h"

namespace korvmailserver::directory {

namespace {

// Just above the socket, below TLS.
constexpr int kLevel = LBER_SBIOD_LEVEL_PROVIDER + 1;

const ConnectDeadline& Of(const Sockbuf_IO_Desc* layer) {
  return *static_cast<const ConnectDeadline*>(layer->sbiod_pvt);
}

int SetUp(Sockbuf_IO_Desc* layer, void* deadline) {
  layer->sbiod_pvt = deadline;
  return 0;
}

int Control(Sockbuf_IO_Desc* layer, int option, void* argument) {
  return LBER_SBIOD_CTRL_NEXT(layer, option, argument);
}

ber_slen_t Read(Sockbuf_IO_Desc* layer, void* bytes, ber_len_t size) {
  return Of(layer).Wait(layer->sbiod_sb, POLLIN) ? LBER_SBIOD_READ_NEXT(layer, bytes, size) : -1;
}

ber_slen_t Write(Sockbuf_IO_Desc* layer, void* bytes, ber_len_t size) {
  return Of(layer).Wait(layer->sbiod_sb, POLLOUT) ? LBER_SBIOD_WRITE_NEXT(layer, bytes, size) : -1;
}

Sockbuf_IO layer_operations = {SetUp, nullptr, Control, Read, Write, nullptr};

int OnConnected(LDAP* /*ldap*/, Sockbuf* buffer, LDAPURLDesc* /*url*/, sockaddr* /*address*/,
                ldap_conncb* callback) {
  return ber_sockbuf_add_io(buffer, &layer_operations, kLevel, callback->lc_arg);
}

void OnClose(LDAP* /*ldap*/, Sockbuf* /*buffer*/, ldap_conncb* /*callback*/) {}

}  // namespace

bool ConnectDeadline::Attach(LDAP* ldap) {
  callback_ = {OnConnected, OnClose, this};
  return ldap_set_option(ldap, LDAP_OPT_CONNECT_CB, &callback_) == LDAP_OPT_SUCCESS;
}

void ConnectDeadline::Arm(int seconds) {
  armed_ = true;
  end_ = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
}

bool ConnectDeadline::Wait(Sockbuf* buffer, short events) const {
  ber_socket_t socket = -1;
  if (!armed_ || ber_sockbuf_ctrl(buffer, LBER_SB_OPT_GET_FD, &socket) != 1) {
    return true;
  }
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                          end_ - std::chrono::steady_clock::now())
                          .count();
    pollfd waiting = {socket, events, 0};
    const int ready = left > 0 ? poll(&waiting, 1, static_cast<int>(left)) : 0;
    if (ready > 0) {
      return true;
    }
    if (ready == 0) {
      errno = ETIMEDOUT;
      return false;
    }
    if (errno != EINTR) {
      return false;
    }
  }
}

}  // namespace korvmailserver::directory
