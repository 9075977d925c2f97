#include "client/ClientThread.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "client/GDQUdpClient.h"

namespace Velk {

bool ClientThread::Start(GDQUdpClient* client) {
  if (m_process != 0) return true;
  m_end = PeerSocket::AboveStandard(eventfd(0, EFD_CLOEXEC));
  if (m_end < 0) return false;
  m_client = client;
  // The program's signal handlers expect to run on the program's threads.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const int error = pthread_create(&m_thread, nullptr, Run, this);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (error == 0) {
    m_process = getpid();
    return true;
  }
  close(m_end);
  errno = error;
  return false;
}

void* ClientThread::Run(void* self) {
  const auto* const thread = static_cast<ClientThread*>(self);
  pollfd watched[] = {{thread->m_end, POLLIN, 0}, {thread->m_client->Descriptor(), POLLIN, 0}};
  while (watched[0].revents == 0) {
    poll(watched, 2, -1);
    thread->m_client->Process();
  }
  return nullptr;
}

void ClientThread::Stop() {
  if (m_process == 0) return;
  const uint64_t one = 1;
  if (m_process == getpid() && write(m_end, &one, sizeof one) == sizeof one) pthread_join(m_thread, nullptr);
  close(m_end);
  m_process = 0;
}

}  // namespace Velk
