#pragma once

/// The number that tells other parts of the runtime how far the process has come. Threading: any thread.
namespace noxcore::appstatemanager {

void SetState(int inState);
/// 0 before the first SetState.
int GetState();

/// Publishes a state when the scope is left.
class ScSetStateWhenDestroyed
{
public:
    explicit ScSetStateWhenDestroyed(int inState) : mState(inState) {}
    ~ScSetStateWhenDestroyed() { SetState(mState); }
    ScSetStateWhenDestroyed(const ScSetStateWhenDestroyed&) = delete;
    ScSetStateWhenDestroyed& operator=(const ScSetStateWhenDestroyed&) = delete;

private:
    const int mState;
};

}  // namespace noxcore::appstatemanager
