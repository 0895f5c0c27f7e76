# The values that differ from one deployment of the service to the next. They end in one generated header.
set(ORVEL_SERVER_HOST "sync.orvel.example" CACHE STRING "Host of the sync and update server, without a scheme")
set(ORVEL_WEB_SITE "www.orvel.example" CACHE STRING "Host of the service's web site, without a scheme")
set(ORVEL_ORGANIZATION_DOMAIN "velmora.example" CACHE STRING "Internet domain of the maker")
