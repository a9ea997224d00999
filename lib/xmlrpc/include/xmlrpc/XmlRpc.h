// XmlRpc: the whole XML-RPC engine in one include, for programs that host a
// server (values, exceptions, diagnostics, the server and its methods).
#pragma once

#include "xmlrpc/XmlRpcDispatch.h"
#include "xmlrpc/XmlRpcException.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcServerConnection.h"
#include "xmlrpc/XmlRpcServerMethod.h"
#include "xmlrpc/XmlRpcSocket.h"
#include "xmlrpc/XmlRpcSource.h"
#include "xmlrpc/XmlRpcUtil.h"
#include "xmlrpc/XmlRpcValue.h"
