#include "Vyr/Task.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "Mox/Reactor.h"

namespace {

using Mox::Ptr;
using Vyr::TimerTask;

// A state machine that follows tasks the way their owners do: it logs each run as
// "<task>@<now> " and then does what the test asked of that task's runs.
class RunLog : public Mox::Reactor {
 public:
  explicit RunLog(Ptr<Vyr::TaskScheduler> scheduler) : scheduler_(std::move(scheduler)) {}

  void follow(const Vyr::Task& task, std::function<void()> onRun) {
    onRun_[task.nameString()] = std::move(onRun);
    subscribe<&RunLog::runDispatch>(task);
  }
  std::string str() const { return log_.str(); }

 private:
  void runDispatch(const Pelo::Publisher& publisher, Pelo::AttrId attr, const Pelo::Key&) {
    if (attr != Vyr::Task::Attr::run || isMarkedForDeletion()) return;
    const auto& name = static_cast<const Vyr::Task&>(publisher).nameString();
    log_ << name << "@" << scheduler_->now() << " ";
    if (onRun_[name]) onRun_[name]();
  }

  Ptr<Vyr::TaskScheduler> scheduler_;
  std::map<Pelo::String, std::function<void()>> onRun_;
  std::ostringstream log_;
};

class TaskTest : public ::testing::Test {
 protected:
  Ptr<TimerTask> task(const char* name, std::uint32_t priority = 4,
                      std::function<void()> onRun = {}) {
    auto t = Mox::makePtr<TimerTask>(scheduler, priority, name);
    log->follow(*t, std::move(onRun));
    return t;
  }

  // Every test leaves nothing alive behind it.
  void TearDown() override {
    log.reset();
    scheduler.reset();
    EXPECT_EQ(Mox::PtrInterface::instances(), instancesBefore);
  }

  const std::int64_t instancesBefore = Mox::PtrInterface::instances();
  Ptr<Vyr::TaskScheduler> scheduler = Mox::makePtr<Vyr::TaskScheduler>();
  Ptr<RunLog> log = Mox::reactorIs<RunLog>(scheduler);
};

TEST_F(TaskTest, DelayedRunHappensOnceAtItsDeadline) {
  auto a = task("a");
  a->scheduleTaskDelay(10.0);
  EXPECT_TRUE(a->taskScheduled());
  EXPECT_EQ(scheduler->advance(9.999), 0U);
  EXPECT_EQ(scheduler->advance(0.001), 1U);
  EXPECT_FALSE(a->taskScheduled());
  scheduler->advance(100);
  EXPECT_EQ(log->str(), "a@10 ");
}

TEST_F(TaskTest, ReschedulingReplacesTheDueTimeAndStopCancels) {
  auto a = task("a");
  auto b = task("b");
  a->scheduleTaskDelay(5);
  a->scheduleTaskDelay(2);
  b->scheduleTaskDelay(-3);  // due now
  EXPECT_EQ(a->dueTime(), 2.0);
  b->stopTimerTask();
  b->stopTimerTask();
  scheduler->advance(10);
  EXPECT_EQ(log->str(), "a@2 ");
}

TEST_F(TaskTest, RunOrderIsDueTimeThenPriorityThenSchedulingOrder) {
  auto p5a = task("p5a", 5);
  auto p5b = task("p5b", 5);
  auto p1 = task("p1", 1);
  auto p9early = task("p9early", 9);
  p5a->scheduleTaskDelay(1);
  p5b->scheduleTaskDelay(1);
  p1->scheduleTaskDelay(1);
  p9early->scheduleTaskDelay(0.5);
  p5a->scheduleTaskDelay(1);  // a new schedule call queues it behind p5b
  scheduler->advance(1);
  EXPECT_EQ(log->str(), "p9early@0.5 p1@1 p5b@1 p5a@1 ");
}

TEST_F(TaskTest, ScheduleTaskFromItsOwnRunRunsAgainAfterTheOthersDueNow) {
  Ptr<TimerTask> a;
  a = task("a", 4, [&] {
    if (a->runs() == 1) a->scheduleTask();
  });
  auto b = task("b", 4);
  // A run that asks for more and then stops again completes and is not repeated.
  Ptr<TimerTask> c;
  c = task("c", 4, [&] {
    c->scheduleTask();
    c->stopTimerTask();
    EXPECT_TRUE(c->taskCurrentlyRunning());
  });
  a->scheduleTask();
  b->scheduleTask();
  c->scheduleTask();
  EXPECT_EQ(scheduler->runDue(), 4U);
  EXPECT_EQ(log->str(), "a@0 b@0 c@0 a@0 ");
  EXPECT_EQ(scheduler->pendingCount(), 0U);
}

TEST_F(TaskTest, TenthSecondStepsAddUpExactly) {
  // With floating-point sums the third run of `a` would fall after `b`.
  Ptr<TimerTask> a;
  a = task("a", 1, [&] {
    if (a->runs() < 3) a->scheduleTaskDelay(0.1);
  });
  auto b = task("b", 4);
  a->scheduleTaskDelay(0.1);
  b->scheduleTaskDelay(0.3);
  EXPECT_EQ(scheduler->advance(1.0), 4U);
  EXPECT_EQ(log->str(), "a@0.1 a@0.2 a@0.3 b@0.3 ");
  for (int i = 0; i < 10; ++i) scheduler->advance(0.1);
  EXPECT_EQ(scheduler->now(), 2.0);
}

TEST_F(TaskTest, RunStateAndCountersBelongToTheCurrentRun) {
  scheduler->timeSliceIs(2);
  std::string yields;
  Ptr<TimerTask> a;
  a = task("a", 4, [&] {
    EXPECT_TRUE(a->taskCurrentlyRunning());
    for (int i = 0; i < 3; ++i) yields += a->taskShouldYield() ? "y" : "n";
    yields += " ";
    a->taskWorkCountInc(a->runs() == 1 ? 7 : 5);
  });
  EXPECT_FALSE(a->taskShouldYield());
  a->scheduleTask();
  scheduler->runDue();
  EXPECT_FALSE(a->taskCurrentlyRunning());
  EXPECT_EQ(a->lastRunWork(), 7U);
  a->scheduleTask();
  scheduler->runDue();
  EXPECT_EQ(yields, "nyy nyy ");
  EXPECT_EQ(a->lastRunWork(), 5U);
  EXPECT_EQ(a->workCount(), 12U);
  EXPECT_EQ(a->runs(), 2U);

  scheduler->timeSliceIs(0);
  yields.clear();
  a->scheduleTask();
  scheduler->runDue();
  EXPECT_EQ(yields, "nnn ");
}

TEST_F(TaskTest, RunMayDropTheLastReferenceToItsOwnTask) {
  Ptr<TimerTask> a;
  std::int64_t aliveWithTask = 0;
  a = task("a", 4, [&] {
    a.reset();
    EXPECT_EQ(Mox::PtrInterface::instances(), aliveWithTask);  // kept alive until the run ends
  });
  a->scheduleTask();
  aliveWithTask = Mox::PtrInterface::instances();
  EXPECT_EQ(scheduler->runDue(), 1U);
  EXPECT_EQ(Mox::PtrInterface::instances(), aliveWithTask - 1);
  EXPECT_TRUE(scheduler->tasks().empty());
}

TEST_F(TaskTest, DestroyedPendingTaskNeverRuns) {
  Ptr<TimerTask> b = task("b");
  auto a = task("a", 1, [&] { b.reset(); });
  auto c = task("c");
  a->scheduleTask();
  b->scheduleTask();
  c->scheduleTaskDelay(1);
  c.reset();
  EXPECT_EQ(scheduler->runUntilIdle(), 1U);
  EXPECT_EQ(log->str(), "a@0 ");
  EXPECT_FALSE(scheduler->nextDue().has_value());
}

TEST_F(TaskTest, TaskListFollowsCreationAndDestruction) {
  auto z = task("z", 2);
  auto a = task("a", 7);
  a->scheduleTaskDelay(3);
  a->taskWorkCountInc(4);
  EXPECT_EQ(scheduler->tasks(),
            (std::vector<Vyr::TaskStats>{{"z", 2, 0, 0, false, 0}, {"a", 7, 0, 4, true, 3}}));
  z.reset();
  scheduler->advance(3);
  EXPECT_EQ(scheduler->tasks(), (std::vector<Vyr::TaskStats>{{"a", 7, 1, 4, false, 3}}));
}

TEST_F(TaskTest, RunUntilIdleStopsAtMaxRuns) {
  Ptr<TimerTask> a;
  a = task("a", 4, [&] { a->scheduleTaskDelay(1); });
  a->scheduleTaskDelay(1);
  EXPECT_EQ(scheduler->runUntilIdle(5), 5U);
  EXPECT_EQ(scheduler->now(), 5.0);
  EXPECT_EQ(scheduler->nextDue(), 6.0);
  a->stopTimerTask();
  EXPECT_EQ(scheduler->runUntilIdle(), 0U);
}

TEST(TaskSchedulerRootTest, FindReturnsTheInstalledSchedulerUntilReplaced) {
  auto first = Vyr::TaskSchedulerRoot::findOrCreateScheduler();
  EXPECT_EQ(Vyr::TaskSchedulerRoot::findOrCreateScheduler(), first);
  auto t = Mox::makePtr<TimerTask>(Vyr::TaskSchedulerRoot::findOrCreateScheduler(), 4, "t");

  auto fresh = Mox::makePtr<Vyr::TaskScheduler>();
  Vyr::TaskSchedulerRoot::schedulerIs(fresh);
  EXPECT_EQ(Vyr::TaskSchedulerRoot::findOrCreateScheduler(), fresh);
  EXPECT_EQ(t->scheduler(), first);

  Vyr::TaskSchedulerRoot::schedulerIs(nullptr);
  auto created = Vyr::TaskSchedulerRoot::findOrCreateScheduler();
  EXPECT_NE(created, nullptr);
  EXPECT_NE(created, fresh);
  Vyr::TaskSchedulerRoot::schedulerIs(nullptr);
}

}  // namespace

namespace {

TEST_F(TaskTest, ARunThatThrowsEndsAndTheSchedulerRunsOn) {
  auto failing = task("failing", 4, [] { throw std::runtime_error("handler failure"); });
  auto next = task("next");
  failing->scheduleTaskDelay(1);
  next->scheduleTaskDelay(2);
  EXPECT_THROW(scheduler->advance(5), std::runtime_error);
  EXPECT_FALSE(failing->taskCurrentlyRunning());
  // The clock stopped at the failed run; what was due later still runs.
  EXPECT_EQ(scheduler->advance(5), 1u);
  EXPECT_EQ(log->str(), "failing@1 next@2 ");
}

}  // namespace
