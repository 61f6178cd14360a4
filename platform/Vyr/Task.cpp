#include "Vyr/Task.h"

#include <cmath>
#include <limits>
#include <utility>

#include "Mox/Assert.h"
#include "Mox/Trace.h"

namespace Vyr {

namespace {

constinit Mox::TraceHandle traceHandle("Vyr");

constexpr std::int64_t kMaxNs = std::numeric_limits<std::int64_t>::max();

// Converts a span to whole nanoseconds, rounding to the nearest. Negative and NaN spans count as
// 0; spans beyond the clock's range (about 292 years) saturate.
std::int64_t toNs(Mox::Seconds s) {
  if (!(s > 0)) return 0;
  const double ns = std::round(s * 1e9);
  if (ns >= static_cast<double>(kMaxNs)) return kMaxNs;
  return static_cast<std::int64_t>(ns);
}

Mox::Seconds toSeconds(std::int64_t ns) { return static_cast<double>(ns) / 1e9; }

// Adds two non-negative times, saturating at the end of the clock's range.
std::int64_t addNs(std::int64_t a, std::int64_t b) { return b > kMaxNs - a ? kMaxNs : a + b; }

// The process's scheduler; empty until first use and after schedulerIs(nullptr).
Mox::Ptr<TaskScheduler>& rootScheduler() {
  static Mox::Ptr<TaskScheduler> scheduler;
  return scheduler;
}

}  // namespace

Task::Task(Mox::Ptr<TaskScheduler> scheduler, std::uint32_t priority, Pelo::String name)
    : Mox::Entity(std::move(name)), scheduler_(std::move(scheduler)), priority_(priority) {
  MOX_ASSERT(scheduler_ != nullptr);
  scheduler_->taskAdd(this);
}

Task::~Task() {
  scheduler_->taskCancel(this);
  scheduler_->taskDel(this);
}

bool Task::taskShouldYield() {
  if (!running_) return false;
  ++runSteps_;
  const std::uint64_t slice = scheduler_->timeSlice();
  return slice != 0 && runSteps_ >= slice;
}

void Task::taskWorkCountInc(std::uint64_t n) {
  workCount_ += n;
  if (running_) lastRunWork_ += n;
}

Mox::Seconds Task::dueTime() const { return toSeconds(dueNs_); }

void Task::scheduleRun(Mox::Seconds delay) { scheduler_->taskSchedule(this, delay); }

void Task::cancelRun() { scheduler_->taskCancel(this); }

TimerTask::TimerTask(Mox::Ptr<TaskScheduler> scheduler, std::uint32_t priority, Pelo::String name)
    : Task(std::move(scheduler), priority, std::move(name)) {}

TimerTask::~TimerTask() = default;

void TimerTask::scheduleTaskDelay(Mox::Seconds delay) { scheduleRun(delay); }

void TimerTask::scheduleTask() { scheduleRun(0); }

void TimerTask::stopTimerTask() { cancelRun(); }

TaskScheduler::TaskScheduler(Pelo::String name) : Mox::Entity(std::move(name)) {}

TaskScheduler::~TaskScheduler() {
  // Every task holds a reference to its scheduler.
  MOX_ASSERT(tasks_.empty());
}

Mox::Seconds TaskScheduler::now() const { return toSeconds(nowNs_); }

std::size_t TaskScheduler::advance(Mox::Seconds d) {
  MOX_ASSERT(!dispatching_);
  // A run may drop the last outside reference to this scheduler.
  const Mox::Ptr<TaskScheduler> self(this);
  const std::int64_t endNs = addNs(nowNs_, toNs(d));
  std::size_t runs = 0;
  while (runNext(endNs)) ++runs;
  nowNs_ = endNs;
  return runs;
}

std::size_t TaskScheduler::runDue() {
  MOX_ASSERT(!dispatching_);
  const Mox::Ptr<TaskScheduler> self(this);
  std::size_t runs = 0;
  while (runNext(nowNs_)) ++runs;
  return runs;
}

std::size_t TaskScheduler::runUntilIdle(std::size_t maxRuns) {
  MOX_ASSERT(!dispatching_);
  const Mox::Ptr<TaskScheduler> self(this);
  std::size_t runs = 0;
  while (runs < maxRuns && runNext(kMaxNs)) ++runs;
  return runs;
}

std::optional<Mox::Seconds> TaskScheduler::nextDue() const {
  if (queue_.empty()) return std::nullopt;
  return toSeconds(queue_.begin()->first.dueNs);
}

std::vector<TaskStats> TaskScheduler::tasks() const {
  std::vector<TaskStats> stats;
  stats.reserve(tasks_.size());
  for (const auto& [creation, task] : tasks_) {
    stats.push_back(TaskStats{task->nameString(), task->priority(), task->runs(), task->workCount(),
                              task->taskScheduled(), task->dueTime()});
  }
  return stats;
}

TaskScheduler::QueueKey TaskScheduler::queueKey(const Task& task) {
  return QueueKey{task.dueNs_, task.priority_, task.sequence_};
}

void TaskScheduler::taskAdd(Task* task) {
  task->creation_ = nextCreation_++;
  tasks_.emplace(task->creation_, task);
}

void TaskScheduler::taskDel(Task* task) { tasks_.erase(task->creation_); }

void TaskScheduler::taskSchedule(Task* task, Mox::Seconds delay) {
  if (task->scheduled_) queue_.erase(queueKey(*task));
  task->dueNs_ = addNs(nowNs_, toNs(delay));
  task->sequence_ = nextSequence_++;
  task->scheduled_ = true;
  queue_.emplace(queueKey(*task), task);
  MOX_TRACE(traceHandle, 9,
            "TaskScheduler::schedule, task: " << task->nameString()
                                              << ", due: " << toSeconds(task->dueNs_));
}

void TaskScheduler::taskCancel(Task* task) {
  if (!task->scheduled_) return;
  queue_.erase(queueKey(*task));
  task->scheduled_ = false;
  MOX_TRACE(traceHandle, 9, "TaskScheduler::cancel, task: " << task->nameString());
}

bool TaskScheduler::runNext(std::int64_t limitNs) {
  while (!queue_.empty()) {
    const auto first = queue_.begin();
    if (first->first.dueNs > limitNs) return false;
    Task* task = first->second;
    queue_.erase(first);
    task->scheduled_ = false;
    // A task whose destruction is under way is about to leave the scheduler; it does not run.
    if (task->isMarkedForDeletion()) continue;
    MOX_ASSERT(task->dueNs_ >= nowNs_);
    nowNs_ = task->dueNs_;
    run(*task);
    return true;
  }
  return false;
}

void TaskScheduler::run(Task& task) {
  // A subscriber may drop the last outside reference to the task during the run.
  const Mox::Ptr<Task> hold(&task);
  MOX_TRACE(traceHandle, 9,
            "TaskScheduler::run, task: " << task.nameString() << ", now: " << now());
  task.running_ = true;
  task.runSteps_ = 0;
  task.lastRunWork_ = 0;
  ++task.runs_;
  // Whatever a subscriber does, exceptions included, the run ends here.
  struct RunEnd {
    TaskScheduler& scheduler;
    Task& task;
    ~RunEnd() {
      scheduler.dispatching_ = false;
      task.running_ = false;
    }
  } end{*this, task};
  dispatching_ = true;
  task.publishChange(Task::Attr::run);
}

Mox::Ptr<TaskScheduler> TaskSchedulerRoot::findOrCreateScheduler() {
  Mox::Ptr<TaskScheduler>& scheduler = rootScheduler();
  if (scheduler == nullptr) scheduler = Mox::makePtr<TaskScheduler>();
  return scheduler;
}

void TaskSchedulerRoot::schedulerIs(Mox::Ptr<TaskScheduler> scheduler) {
  rootScheduler() = std::move(scheduler);
}

}  // namespace Vyr
