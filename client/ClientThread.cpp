#include "client/ClientThread.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "client/GDQUdpClient.h"

namespace Velk {

bool ClientThread::Start(GDQUdpClient* client) {
  if (m_process == getpid()) return true;
  m_client = client;
  m_end = false;
  // Blocks all signals: the program's handlers must run on the program's threads.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const int error = pthread_create(&m_thread, nullptr, Run, this);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (error == 0) {
    m_process = getpid();
    return true;
  }
  errno = error;
  return false;
}

void* ClientThread::Run(void* self) {
  // If the program closes the descriptor during poll(2), only this limit ends the wait.
  constexpr int kLongestMs = 2000;
  const auto* const thread = static_cast<ClientThread*>(self);
  while (!thread->m_end) {
    pollfd watched = {thread->m_client->Descriptor(), POLLIN, 0};
    poll(&watched, 1, watched.fd >= 0 ? kLongestMs : static_cast<int>(GDQUdpClient::kSettleMs));
    thread->m_client->Process(GDQUdpClient::kSettleMs);
  }
  return nullptr;
}

void ClientThread::Stop() {
  if (m_process == getpid()) {
    m_end = true;
    m_client->Wake();
    pthread_join(m_thread, nullptr);
  }
  m_process = 0;
}

}  // namespace Velk
