// The namespace and action URIs of the services that the driver talks to, each named once.
#pragma once

#define ONVIF_SCHEME "http://www.onvif.org"
#define W3C_SCHEME "http://www.w3.org"
#define WS_SCHEME "http://schemas.xmlsoap.org"
#define WSN_SCHEME "http://docs.oasis-open.org/wsn"
#define WSS_SCHEME "http://docs.oasis-open.org/wss/2004/01"

// ONVIF Core, Media, PTZ and Event service specifications.
inline constexpr char NS_ONVIF_DEVICE[] = ONVIF_SCHEME "/ver10/device/wsdl";
inline constexpr char NS_ONVIF_MEDIA[] = ONVIF_SCHEME "/ver10/media/wsdl";
inline constexpr char NS_ONVIF_EVENTS[] = ONVIF_SCHEME "/ver10/events/wsdl";
inline constexpr char NS_ONVIF_NETWORK[] = ONVIF_SCHEME "/ver10/network/wsdl";
inline constexpr char NS_ONVIF_SCHEMA[] = ONVIF_SCHEME "/ver10/schema";
inline constexpr char NS_ONVIF_PTZ[] = ONVIF_SCHEME "/ver20/ptz/wsdl";

// SOAP 1.2, XML Schema, WS-Addressing 2004/08, WS-Discovery 2005/04.
inline constexpr char NS_SOAP_ENVELOPE[] = W3C_SCHEME "/2003/05/soap-envelope";
inline constexpr char NS_XML_SCHEMA[] = W3C_SCHEME "/2001/XMLSchema";
inline constexpr char NS_XML_SCHEMA_INSTANCE[] = W3C_SCHEME "/2001/XMLSchema-instance";
inline constexpr char NS_WS_ADDRESSING[] = WS_SCHEME "/ws/2004/08/addressing";
inline constexpr char NS_WS_DISCOVERY[] = WS_SCHEME "/ws/2005/04/discovery";
inline constexpr char WS_DISCOVERY_PROBE_ACTION[] = WS_SCHEME "/ws/2005/04/discovery/Probe";
inline constexpr char WS_DISCOVERY_TO[] = "urn:schemas-xmlsoap-org:ws:2005:04:discovery";

// OASIS Web Services Notification 1.3, and the W3C Web Services Addressing 1.0 that goes with it.
inline constexpr char NS_WS_NOTIFICATION[] = WSN_SCHEME "/b-2";
inline constexpr char WSN_SUBSCRIBE_ACTION[] = WSN_SCHEME "/bw-2/NotificationProducer/SubscribeRequest";
inline constexpr char NS_ADDRESSING[] = W3C_SCHEME "/2005/08/addressing";
inline constexpr char ADDRESSING_ANONYMOUS[] = W3C_SCHEME "/2005/08/addressing/anonymous";

// OASIS Web Services Security 1.0.
inline constexpr char NS_WSS_EXTENSION[] = WSS_SCHEME "/oasis-200401-wss-wssecurity-secext-1.0.xsd";
inline constexpr char NS_WSS_UTILITY[] = WSS_SCHEME "/oasis-200401-wss-wssecurity-utility-1.0.xsd";
inline constexpr char WSS_PASSWORD_DIGEST[] =
    WSS_SCHEME "/oasis-200401-wss-username-token-profile-1.0#PasswordDigest";
inline constexpr char WSS_BASE64_BINARY[] =
    WSS_SCHEME "/oasis-200401-wss-soap-message-security-1.0#Base64Binary";

#undef ONVIF_SCHEME
#undef W3C_SCHEME
#undef WS_SCHEME
#undef WSN_SCHEME
#undef WSS_SCHEME
