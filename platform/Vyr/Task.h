#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <tuple>
#include <vector>

#include "Mox/Entity.h"
#include "Mox/Ptr.h"
#include "Mox/Seconds.h"
#include "Pelo/Key.h"
#include "Pelo/String.h"

namespace Vyr {

class TaskScheduler;

// A unit of work that runs on the agent's single event loop. A run is a notification: the
// scheduler publishes Attr::run to the task's subscribers, synchronously, and the subscribers do
// the work. A long job is cut into runs: the subscriber checks taskShouldYield() as it goes,
// stops when it says so and schedules the task again.
//
// A task is normally held (Ptr) by the state machine that subscribes to it; destroying the task
// cancels its pending run, so a task never outlives the interest in it. The task holds a reference
// to its scheduler, registers with it at construction and deregisters at destruction. The task's
// name is its entity name; it appears in traces and in TaskScheduler::tasks().
class Task : public Mox::Entity {
 public:
  struct Attr {
    // Published once per run; the key is empty.
    static constexpr Pelo::AttrId run = 1;
  };

  std::uint32_t priority() const { return priority_; }
  // The scheduler the task was built with.
  const Mox::Ptr<TaskScheduler>& scheduler() const { return scheduler_; }

  // A run is pending.
  bool taskScheduled() const { return scheduled_; }
  // The task's run notification is being dispatched.
  bool taskCurrentlyRunning() const { return running_; }
  // Counts one step of the current run and tells whether the run has used up the scheduler's time
  // slice: with a slice of n, the n-th and every later call of a run return true. Always false
  // outside a run and with an unlimited slice.
  bool taskShouldYield();
  // Accounts `n` units of work to the current run and to the total; outside a run the work counts
  // towards the total only.
  void taskWorkCountInc(std::uint64_t n);

  // Runs started since construction.
  std::uint64_t runs() const { return runs_; }
  // Work accounted since construction.
  std::uint64_t workCount() const { return workCount_; }
  // Work accounted by the current run, or else by the last one.
  std::uint64_t lastRunWork() const { return lastRunWork_; }
  // The time the pending run is due; while none is pending, the due time of the last run
  // scheduled (0 before any).
  Mox::Seconds dueTime() const;

 protected:
  // `scheduler` must not be null. `priority` orders runs due at the same time; a lower number
  // runs first.
  Task(Mox::Ptr<TaskScheduler> scheduler, std::uint32_t priority, Pelo::String name);
  ~Task() override;

  // Makes a run due `delay` seconds from now (negative counts as 0), replacing the pending one.
  // May be called from inside a run, including the task's own.
  void scheduleRun(Mox::Seconds delay);
  // Cancels the pending run; no-op when none is pending. Does not interrupt a run in progress.
  void cancelRun();

 private:
  friend class TaskScheduler;

  Mox::Ptr<TaskScheduler> scheduler_;
  std::uint32_t priority_;
  std::uint64_t creation_ = 0;  // the scheduler's creation number, orders tasks()
  std::int64_t dueNs_ = 0;
  std::uint64_t sequence_ = 0;  // number of the last schedule call, breaks ties
  bool scheduled_ = false;
  bool running_ = false;
  std::uint64_t runSteps_ = 0;  // taskShouldYield calls in the current run
  std::uint64_t runs_ = 0;
  std::uint64_t workCount_ = 0;
  std::uint64_t lastRunWork_ = 0;
};

// A task its owner schedules explicitly, one run per request: after a delay, or as soon as the
// event loop allows. The owner builds it next to its subscription and keeps it as a member.
class TimerTask : public Task {
 public:
  TimerTask(Mox::Ptr<TaskScheduler> scheduler, std::uint32_t priority, Pelo::String name);

  // Makes the task run once, `delay` seconds from now (negative counts as 0). A pending run is
  // replaced: only the new due time counts.
  void scheduleTaskDelay(Mox::Seconds delay);
  // Makes the task run once, due now. The run happens from the event loop, never inside this
  // call; called from inside the task's own run it makes one more run after the current one.
  void scheduleTask();
  // Cancels the pending run; no-op when none is pending. A run in progress completes.
  void stopTimerTask();

 protected:
  ~TimerTask() override;
};

// One line of TaskScheduler::tasks().
struct TaskStats {
  Pelo::String name;
  std::uint32_t priority = 0;
  std::uint64_t runs = 0;
  std::uint64_t workCount = 0;
  bool scheduled = false;
  Mox::Seconds dueTime = 0;  // meaningful when scheduled

  friend bool operator==(const TaskStats&, const TaskStats&) = default;
};

// The event loop's timer queue and its virtual clock. Nothing moves the clock but advance() and
// runUntilIdle(), which tests and the simulator call; the clock counts whole nanoseconds, so
// steps such as 0.1 s add up exactly.
//
// Order of runs: ascending due time; runs due at the same time by ascending priority number (a
// lower number runs first), then in the order of the schedule calls that made them due (every
// schedule call, including one that replaces a pending run, takes a new sequence number). A task
// scheduled with no delay is therefore due now and runs after the runs already due now of the
// same or a lower priority number.
//
// The scheduler holds no reference to its tasks except during a run, when it keeps the running
// task alive; a run may destroy, stop or schedule any task, including its own. Each task holds a
// reference to its scheduler, so the scheduler outlives its tasks. The process's scheduler is
// found through TaskSchedulerRoot; tests build their own.
class TaskScheduler : public Mox::Entity {
 public:
  explicit TaskScheduler(Pelo::String name = "TaskScheduler");

  Mox::Seconds now() const;

  // The run functions below are the event loop: none may be called from inside a run. Each
  // returns the number of runs it made.

  // Runs, in order, every run due at or before now + `d` (negative counts as 0), including runs
  // that those runs make due inside the window; the clock is set to each run's due time before it
  // runs and is left at now + `d`.
  std::size_t advance(Mox::Seconds d);
  // Runs what is due now, including runs those runs make due now; the clock stays. A task that
  // keeps scheduling itself with no delay keeps this from returning.
  std::size_t runDue();
  // Moves the clock to each next due time and runs, until nothing is pending or `maxRuns` runs
  // were made.
  std::size_t runUntilIdle(std::size_t maxRuns = 1000000);

  // The due time of the first pending run, if any.
  std::optional<Mox::Seconds> nextDue() const;
  std::size_t pendingCount() const { return queue_.size(); }

  // Steps (taskShouldYield calls) a run may take before it is told to yield; 0, the default,
  // means unlimited.
  void timeSliceIs(std::uint64_t steps) { timeSlice_ = steps; }
  std::uint64_t timeSlice() const { return timeSlice_; }

  // Every task alive on this scheduler, scheduled or not, in creation order.
  std::vector<TaskStats> tasks() const;

 protected:
  ~TaskScheduler() override;

 private:
  friend class Task;

  struct QueueKey {
    std::int64_t dueNs;
    std::uint32_t priority;
    std::uint64_t sequence;
    friend bool operator<(const QueueKey& a, const QueueKey& b) {
      return std::tie(a.dueNs, a.priority, a.sequence) < std::tie(b.dueNs, b.priority, b.sequence);
    }
  };
  static QueueKey queueKey(const Task& task);

  void taskAdd(Task* task);
  void taskDel(Task* task);
  void taskSchedule(Task* task, Mox::Seconds delay);
  void taskCancel(Task* task);
  // Runs the first pending run if it is due at or before `limitNs`; returns whether it ran one.
  bool runNext(std::int64_t limitNs);
  void run(Task& task);

  std::int64_t nowNs_ = 0;
  std::uint64_t timeSlice_ = 0;
  std::uint64_t nextSequence_ = 0;
  std::uint64_t nextCreation_ = 0;
  bool dispatching_ = false;
  std::map<QueueKey, Task*> queue_;       // not owned: a task leaves it when it dies
  std::map<std::uint64_t, Task*> tasks_;  // not owned, by creation number; likewise
};

// Where the agent and its plug-ins find the process's task scheduler.
class TaskSchedulerRoot {
 public:
  TaskSchedulerRoot() = delete;

  // The process's scheduler, created on first use.
  static Mox::Ptr<TaskScheduler> findOrCreateScheduler();
  // Replaces the process's scheduler (tests and the simulator install a fresh one); null makes
  // the next find create a new one. Existing tasks stay on the scheduler they were built with.
  static void schedulerIs(Mox::Ptr<TaskScheduler> scheduler);
};

}  // namespace Vyr
