/* http-min-responder: the HTTP benchmark's floor, answering every request
 * with one fixed XML-RPC response and doing no XML work at all.
 *
 * A single-threaded epoll server that reads each request by its
 * Content-length: what this machine can do for the request shape.
 *   http-min-responder PORT   (0: pick one; prints "port N")
 * Stops on SIGTERM or SIGINT. */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

/* Requests of the benchmark are well under a kilobyte; a connection whose
 * request does not fit is dropped. */
#define BUFFER_SIZE 16384
/* Descriptors the responder can serve; wrk opens at most 5,000 connections. */
#define MAX_FDS 16384
/* Accept queue: room for wrk's thousands of connects at once. */
#define BACKLOG 1024
#define MAX_EVENTS 128

static const char kBody[] =
    "<?xml version=\"1.0\"?>\r\n<methodResponse><params><param>\r\n\t"
    "<value><array><data><value>echo</value></data></array></value>"
    "\r\n</param></params></methodResponse>\r\n";

struct conn {
  char buf[BUFFER_SIZE];
  size_t len;
};

static struct conn* conns[MAX_FDS];
static char response[1024];
static size_t responseLen;
static volatile sig_atomic_t stop;

static void onStop(int sig) {
  (void)sig;
  stop = 1;
}

static void dropConn(int ep, int fd) {
  epoll_ctl(ep, EPOLL_CTL_DEL, fd, NULL);
  close(fd);
  free(conns[fd]);
  conns[fd] = NULL;
}

/* Length of the first complete request in c (header and body), 0 if it is
 * not complete yet; *closeAfter tells whether the client asked to close. */
static size_t completeRequest(const struct conn* c, int* closeAfter) {
  const char* end = memmem(c->buf, c->len, "\r\n\r\n", 4);
  if (end == NULL) return 0;
  size_t headerLen = (size_t)(end - c->buf) + 4;
  long length = 0;
  *closeAfter = 0;
  for (const char* p = c->buf; p < end; ++p) {
    if (strncasecmp(p, "\ncontent-length:", 16) == 0) length = strtol(p + 16, NULL, 10);
    if (strncasecmp(p, "\nconnection: close", 18) == 0) *closeAfter = 1;
  }
  if (length < 0 || headerLen + (size_t)length > c->len) return 0;
  return headerLen + (size_t)length;
}

static void serve(int ep, int fd) {
  struct conn* c = conns[fd];
  for (;;) {
    ssize_t n = recv(fd, c->buf + c->len, sizeof(c->buf) - c->len, 0);
    if (n > 0) {
      c->len += (size_t)n;
      if (c->len == sizeof(c->buf)) break;
      continue;
    }
    if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
      dropConn(ep, fd);
      return;
    }
    break;
  }
  int closeAfter = 0;
  size_t used;
  while ((used = completeRequest(c, &closeAfter)) > 0) {
    /* The fixed response is small enough to always fit the send buffer. */
    if (send(fd, response, responseLen, MSG_NOSIGNAL) != (ssize_t)responseLen || closeAfter) {
      dropConn(ep, fd);
      return;
    }
    memmove(c->buf, c->buf + used, c->len - used);
    c->len -= used;
  }
  if (c->len == sizeof(c->buf)) dropConn(ep, fd);
}

int main(int argc, char** argv) {
  int port = argc > 1 ? atoi(argv[1]) : 0;
  responseLen = (size_t)snprintf(response, sizeof(response),
                                 "HTTP/1.1 200 OK\r\nServer: min\r\nContent-Type: text/xml\r\n"
                                 "Content-Length: %zu\r\n\r\n%s",
                                 sizeof(kBody) - 1, kBody);
  struct sigaction sa;
  memset(&sa, 0, sizeof(sa));
  sa.sa_handler = onStop;
  sigaction(SIGTERM, &sa, NULL);
  sigaction(SIGINT, &sa, NULL);

  int lfd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
  int on = 1;
  setsockopt(lfd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  struct sockaddr_in addr;
  memset(&addr, 0, sizeof(addr));
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons((unsigned short)port);
  socklen_t alen = sizeof(addr);
  if (bind(lfd, (struct sockaddr*)&addr, sizeof(addr)) != 0 || listen(lfd, BACKLOG) != 0) {
    perror("http-min-responder");
    return 1;
  }
  getsockname(lfd, (struct sockaddr*)&addr, &alen);
  printf("port %d\n", ntohs(addr.sin_port));
  fflush(stdout);

  int ep = epoll_create1(0);
  struct epoll_event ev = {.events = EPOLLIN, .data.fd = lfd};
  epoll_ctl(ep, EPOLL_CTL_ADD, lfd, &ev);
  struct epoll_event events[MAX_EVENTS];
  while (!stop) {
    int n = epoll_wait(ep, events, MAX_EVENTS, 500);
    for (int i = 0; i < n; ++i) {
      int fd = events[i].data.fd;
      if (fd != lfd) {
        serve(ep, fd);
        continue;
      }
      int cfd;
      while ((cfd = accept4(lfd, NULL, NULL, SOCK_NONBLOCK)) >= 0) {
        if (cfd >= MAX_FDS) {
          close(cfd);
          continue;
        }
        setsockopt(cfd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        conns[cfd] = calloc(1, sizeof(struct conn));
        struct epoll_event cev = {.events = EPOLLIN, .data.fd = cfd};
        epoll_ctl(ep, EPOLL_CTL_ADD, cfd, &cev);
      }
    }
  }
  return 0;
}
