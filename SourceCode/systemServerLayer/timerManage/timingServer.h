#ifndef PK_TIMERMANAGE_TIMING_SERVER_H
#define PK_TIMERMANAGE_TIMING_SERVER_H

// A client of the timer service. tick() runs on the service's thread with the
// service's lock held, so it must return quickly and must not call the service.
class TimingServer {
 public:
  virtual ~TimingServer() = default;
  virtual void tick() = 0;
};

#endif
