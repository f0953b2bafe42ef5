# The HTTP server beside its peers; wrk asks all of them in one run.
find_package(Boost 1.81 REQUIRED)

hub_program(HubServerLoad SOURCES HubServerLoad.cpp LINK noxnet)
hub_program(BareBeastServer SOURCES BareBeastServer.cpp LINK Boost::headers Threads::Threads)
