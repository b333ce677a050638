// Reads one number from a registry: client HOST:PORT PATH. Needs registry.idl and any ORB; this is omniORB.
#include <iostream>
#include <registry.hh>

int main(int argc, char* argv[]) try {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    std::string url = std::string("corbaloc:iiop:1.2@") + (argc > 1 ? argv[1] : "127.0.0.1:5678") + "/Registry";
    CORBA::Object_var object = orb->string_to_object(url.c_str());
    reg::Registry_var registry = reg::Registry::_narrow(object);
    reg::Reading_var reading = registry->get(argc > 2 ? argv[2] : "fans");
    if (reading->val._d() != reg::TYPE_DOUBLE) {
        throw reg::Error(reg::WRONG_TYPE, "", "not a number");
    }
    std::cout << reading->val.number() << std::endl;
    orb->destroy();
} catch (const reg::Error& error) {
    std::cerr << error.text << std::endl;
    return 1;
} catch (const CORBA::Exception& error) {
    std::cerr << error._name() << std::endl;
    return 2;
}
