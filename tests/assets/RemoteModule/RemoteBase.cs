namespace Shapes.Remote
{
    public class RemoteBase
    {
        public virtual void Run() { }
    }
}
