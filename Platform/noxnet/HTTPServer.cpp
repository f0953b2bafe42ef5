#include "Platform/noxnet/HTTPServer.h"

#include <algorithm>
#include <atomic>

#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxnet/Listener.h"

namespace noxnet::http::server {

namespace {

template <class T>
void ReadSetting(const noxcore::debug::DebugDatabase& inSettings, std::string_view inName, T& ioValue)
{
    const std::string key = "VY.Config.LocalHub.HTTP." + std::string(inName);
    const std::int64_t value = inSettings.GetInteger(key, static_cast<std::int64_t>(ioValue));
    if (value > 0) ioValue = static_cast<T>(value);
}

/// Router and listener under one roof.
class ServerImpl final : public Server
{
public:
    ServerImpl(std::uint16_t inPort, bool inFirst, int inReserved)
        : mFirst(inFirst),
          mReserved(inReserved),
          mLimits(Limits::FromSettings()),
          mRouter(std::make_shared<Router>(mLimits)),
          mPort(inPort)
    {
        mRouter->GetGate().SetPorts(inPort, 0);
    }
    ~ServerImpl() override { ServerImpl::Stop(); }

    int Start() override
    {
        if (mListener) return kHTTPStatus_OK;
        const noxcore::HubContext::Scope scope(mRouter->Context());
        const auto factory = mRouter->Context()->GetInstance<ListenerFactory>();
        auto listener = factory ? factory->Create(mRouter, mLimits) : MakeSocketListener(mRouter, mLimits);
        if (!listener->Open(mPort)) return kHTTPStatus_InternalServerError;
        mListener = std::move(listener);
        mPort = mListener->Port();
        mRouter->GetGate().SetPorts(mPort, mInfoPort);
        Gate::WarnIfRoot();
        return kHTTPStatus_OK;
    }

    [[nodiscard]] std::uint16_t GetPort() const override { return mPort; }

    void Stop() override
    {
        if (mListener) mListener->StopReceiving();
        mRouter->ShutDownAndWait();
        if (mListener) mListener->Close();
        mListener.reset();
    }

    void RegisterService(const PathExpression& inExpression, std::shared_ptr<Service> inService) override
    {
        mRouter->Register(inExpression, std::move(inService));
    }
    void UnregisterService(const PathExpression& inExpression) override { mRouter->Unregister(inExpression); }

    void SetInfoPort(std::uint16_t inPort) override
    {
        mInfoPort = inPort;
        mRouter->GetGate().SetPorts(mPort, inPort);
    }

    void Dispatch(std::shared_ptr<IncomingRequest> inRequest, Fulfillment inFulfillment) override
    {
        mRouter->Dispatch(std::move(inRequest), std::move(inFulfillment));
    }

private:
    [[maybe_unused]] const bool mFirst;
    [[maybe_unused]] const int mReserved;
    const Limits mLimits;
    const std::shared_ptr<Router> mRouter;
    std::unique_ptr<Listener> mListener;  ///< one thread: whoever starts and stops
    std::atomic<std::uint16_t> mPort;
    std::atomic<std::uint16_t> mInfoPort = 0;
};

}  // namespace

Limits Limits::FromSettings()
{
    const auto settings = noxcore::debug::DebugDatabase::Instance();
    Limits limits;
    ReadSetting(*settings, "MaxHeaderBytes", limits.mMaxHeaderBytes);
    ReadSetting(*settings, "MaxPathBytes", limits.mMaxPathBytes);
    ReadSetting(*settings, "MaxBodyBytes", limits.mMaxBodyBytes);
    ReadSetting(*settings, "MaxSmallBodyBytes", limits.mMaxSmallBodyBytes);
    ReadSetting(*settings, "MaxBodyBytesTogether", limits.mMaxBodyBytesTogether);
    ReadSetting(*settings, "MaxFormFields", limits.mMaxFormFields);
    ReadSetting(*settings, "MaxConnections", limits.mMaxConnections);
    ReadSetting(*settings, "ReservedDescriptors", limits.mReservedDescriptors);
    ReadSetting(*settings, "RequestTimeoutInSeconds", limits.mRequestTimeoutInSeconds);
    ReadSetting(*settings, "BodyTimeoutInSeconds", limits.mBodyTimeoutInSeconds);
    ReadSetting(*settings, "MinBodyBytesPerSecond", limits.mMinBodyBytesPerSecond);
    ReadSetting(*settings, "IdleTimeoutInSeconds", limits.mIdleTimeoutInSeconds);
    ReadSetting(*settings, "Threads", limits.mThreads);
    return limits;
}

std::shared_ptr<Server> Server::Create(std::uint16_t inPort, bool inFirst, int inReserved)
{
    return std::make_shared<ServerImpl>(inPort, inFirst, inReserved);
}

bool Service::AnswersAtOnce(const Request& /*inRequest*/) const
{
    return false;
}

}  // namespace noxnet::http::server

namespace noxnet {

void Shutdown()
{
    // Servers keep nothing beyond themselves; the clients of the process end here once there are some.
}

}  // namespace noxnet
