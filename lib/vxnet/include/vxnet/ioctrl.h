// ioctrl: the base of objects that own one socket and do their pending input
// and output when the owner's loop gives them a turn.
#pragma once

namespace vxnet {

// The owner calls wait() from its loop; the object polls its one descriptor
// and handles what is ready. Single-threaded: everything, including the
// callbacks a subclass makes from its handlers, runs inside wait().
class ioctrl {
 public:
  ioctrl() = default;
  ioctrl(const ioctrl&) = delete;
  ioctrl& operator=(const ioctrl&) = delete;
  virtual ~ioctrl() = default;

  // Waits at most timeout_ms milliseconds for the descriptor to become ready
  // and handles what is pending (reads everything readable, writes what is
  // queued). Returns at once when there is no descriptor. Returns true when
  // something was read or written.
  bool wait(unsigned timeout_ms);

 protected:
  // The descriptor to watch, or -1 when there is none.
  virtual int io_descriptor() const noexcept = 0;
  // Whether output is queued, so that writability is worth watching.
  virtual bool io_wants_write() const noexcept = 0;
  // The descriptor is readable (or has hung up or failed: the read tells).
  virtual void io_readable() = 0;
  // The descriptor is writable.
  virtual void io_writable() = 0;
};

}  // namespace vxnet
