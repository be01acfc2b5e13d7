#include "tests/faults/instants/plan.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <dlfcn.h>
#include <iterator>
#include <random>

namespace faults {

namespace {

struct Function {
    const char* name;
    const char* symbol;
    int steps; // about so many instructions of it are tried
};

// Where a crash meets locks and half-changed data.
constexpr Function functions[] = {
    {"malloc", "malloc", 60},
    {"malloc", "malloc", 200},
    {"free", "free", 60},
    {"free", "free", 200},
    {"vsnprintf", "__vsnprintf_chk", 1500},
    {"snprintf", "__snprintf_chk", 1500},
    {"logmsg", "_Z6logmsgiPKcz", 4000},
    {"pthread_mutex_lock", "pthread_mutex_lock", 60},
    {"pthread_mutex_unlock", "pthread_mutex_unlock", 60},
    {"open", "open", 40},
    {"string", "_ZNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEE9_M_appendEPKcm", 200},
};

class Dice {
public:
    Dice(unsigned seed, long item) : random_(seed * 1000003ULL + static_cast<unsigned long long>(item)) {}

    template<class Limit>
    int below(Limit limit) {
        return static_cast<int>(random_() % static_cast<unsigned long long>(limit));
    }
    // Small numbers often, large ones sometimes.
    int scaled(int limit) { return below(below(limit) + 1); }

private:
    std::mt19937_64 random_;
};

// About so many calls of the main thread are in this scene.
int callsIn(Plan::Scene scene) {
    switch (scene) {
    case Plan::Scene::start:
        return 900;
    case Plan::Scene::quiet:
        return 4;
    case Plan::Scene::flood:
        return 600;
    case Plan::Scene::switches:
        return 900;
    case Plan::Scene::detection:
        return 1200;
    case Plan::Scene::shutdown:
        return 70;
    }
    return 1;
}

void choosePlace(Plan& plan, Dice& dice) {
    plan.place = static_cast<Plan::Place>(std::min(dice.below(8), 2)); // time 1, call 1, function 6 of 8
    if (dice.below(2) == 0) {
        plan.place = Plan::Place::call;
    }
    if (plan.scene == Plan::Scene::start && plan.place == Plan::Place::function && dice.below(2) == 0) {
        plan.place = Plan::Place::call;
    }
    plan.microseconds = dice.below(plan.scene == Plan::Scene::start ? 60000 : 700000);
    plan.hit = 1 + dice.below(callsIn(plan.scene));
    plan.atEntry = dice.below(2) == 0;
    plan.anyThread = plan.signal() == SIGINT && dice.below(4) == 0;
    plan.deed.steps = dice.below(3) == 0 ? 0 : dice.scaled(3000);
    if (plan.place == Plan::Place::function) {
        const Function& chosen = functions[dice.below(std::size(functions))];
        plan.function = dlsym(RTLD_DEFAULT, chosen.symbol);
        plan.functionName = chosen.name;
        plan.hit = 1 + dice.scaled(plan.scene == Plan::Scene::shutdown ? 6 : 25);
        plan.deed.steps = dice.below(chosen.steps);
    }
}

const char* nameOf(Plan::Scene scene) {
    switch (scene) {
    case Plan::Scene::start:
        return "start";
    case Plan::Scene::quiet:
        return "quiet";
    case Plan::Scene::flood:
        return "flood";
    case Plan::Scene::switches:
        return "switches";
    case Plan::Scene::detection:
        return "detection";
    case Plan::Scene::shutdown:
        return "shutdown";
    }
    return "?";
}

} // namespace

int Plan::signal() const {
    return deed.kind == Deed::Kind::crash ? SIGSEGV : deed.value;
}

std::string Plan::text() const {
    std::string text = deed.kind == Deed::Kind::crash ? "a crash" : signal() == SIGINT ? "SIGINT" : "SIGSEGV";
    text += std::string(" in scene ") + nameOf(scene);
    switch (place) {
    case Place::time:
        return text + " after " + std::to_string(microseconds) + " us";
    case Place::call:
        text += std::string(atEntry ? " before" : " after") + " system call " + std::to_string(hit);
        break;
    case Place::function:
        text += " in " + functionName + " number " + std::to_string(hit);
        break;
    }
    return text + " and " + std::to_string(deed.steps) + " instructions";
}

Plan makePlan(unsigned seed, long item) {
    Dice dice(seed, item);
    Plan plan;
    plan.deed.kind = Deed::Kind::signal;
    plan.deed.value = SIGINT;
    if (item % 2 == 1) {
        plan.deed.value = SIGSEGV;
        plan.deed.kind = dice.below(4) == 0 ? Deed::Kind::signal : Deed::Kind::crash;
    }
    plan.scene = static_cast<Plan::Scene>(dice.below(6));
    if (plan.scene == Plan::Scene::quiet && dice.below(3) != 0) {
        plan.scene = Plan::Scene::switches; // little happens in the quiet scene
    }
    choosePlace(plan, dice);
    return plan;
}

} // namespace faults
